"""Progress while it runs: one line that is written over on a terminal, otherwise a line a minute."""

import sys
import time

PLAIN_SECONDS = 60.0


def clock(seconds):
    minutes, seconds = divmod(int(seconds), 60)
    return f"{minutes}:{seconds:02}"


class Screen:
    def __init__(self, seconds, out=sys.stdout):
        self._out = out
        self._live = out.isatty()
        self._seconds = seconds
        self._begin = time.monotonic()
        self._next = 0.0
        self._open = False

    def say(self, text):
        self.close()
        print(text, file=self._out, flush=True)

    def progress(self, text):
        passed = time.monotonic() - self._begin
        line = f"{clock(passed)} of {clock(self._seconds)}  {text}"
        if self._live:
            self._out.write(f"\r{line}\033[K")
            self._out.flush()
            self._open = True
        elif passed >= self._next:
            self._next = passed + PLAIN_SECONDS
            print(line, file=self._out, flush=True)

    def close(self):
        """Leaves the line that is written over."""
        if self._open:
            self._out.write("\n")
            self._open = False
