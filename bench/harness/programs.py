"""The programs that a benchmark starts, and their ends. Everything started here is also ended here."""

import os
import shutil
import signal
import subprocess
import time
from pathlib import Path

import numpy

from . import paths
from .machine import thread_seconds

ROW = numpy.dtype([("time", "<i8"), ("serial", "<u4"), ("universe", "<u2"), ("sequence", "u1"), ("length", "u1")])


# Nanoseconds. A clock that is being steered moves by some microseconds in a run; one that is set, by more.
LONGEST_CLOCK_STEP = 1_000_000


def program_environment(**more):
    return {**os.environ, "LC_ALL": "C.UTF-8", **more}


class Program:
    """A child process with pipes, ended with the `with` block."""

    live = []

    def __init__(self, words, **options):
        options.setdefault("stdin", subprocess.PIPE)
        options.setdefault("stdout", subprocess.PIPE)
        self.process = subprocess.Popen([str(word) for word in words], text=True, bufsize=1, **options)
        Program.live.append(self)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end()

    @property
    def pid(self):
        return self.process.pid

    def ask(self, line):
        self.process.stdin.write(line + "\n")
        return self.read()

    def read(self):
        line = self.process.stdout.readline()
        if not line:
            raise RuntimeError(f"{self.process.args[0]} ended unexpectedly")
        return line.strip()

    def end(self, how=signal.SIGTERM):
        if self in Program.live:
            Program.live.remove(self)
        if self.process.poll() is None:
            self.process.send_signal(how)
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        for pipe in (self.process.stdin, self.process.stdout):
            if pipe:
                pipe.close()

    @staticmethod
    def live_pids():
        return [program.pid for program in Program.live]

    @staticmethod
    def end_all():
        for program in list(reversed(Program.live)):
            program.end()


def run(words, **options):
    """Runs a program to its end and gives what it printed."""
    done = subprocess.run([str(word) for word in words], stdout=subprocess.PIPE, text=True, check=False, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{words[0]} ended with status {done.returncode}")
    return done.stdout.strip()


def run_measured(words):
    """Runs a program to its end and gives the CPU seconds that it took."""
    program = Program(words)
    Program.live.remove(program)
    _, status, usage = os.wait4(program.pid, 0)
    program.process.returncode = os.waitstatus_to_exitcode(status)
    program.end()
    if program.process.returncode != 0:
        raise RuntimeError(f"{words[0]} ended with status {program.process.returncode}")
    return usage.ru_utime + usage.ru_stime


def free_port():
    """A UDP port that nobody uses at this moment."""
    import socket

    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Receiver(Program):
    """Takes in what is sent to `port`; rows() ends it."""

    def __init__(self, rows, port=None, prefix=()):
        self.port = port or free_port()
        self._file = paths.SCRATCH / f"rows-{self.port}"
        super().__init__([*prefix, paths.tool("bench_receiver"), self.port, rows, self._file])
        self.buffer = int(self.read().split()[1])
        self.dropped = 0
        self.clock_step = 0

    def wait_for(self, count, patience=2.0):
        """Waits until `count` have come, or none has come for `patience` seconds."""
        seen, last = -1, time.monotonic()
        while seen < count and time.monotonic() - last < patience:
            now = int(self.ask(""))
            if now != seen:
                seen, last = now, time.monotonic()
            time.sleep(0.02)

    def rows(self):
        """All rows in the order of arrival, times in nanoseconds; sets `received`, `dropped` and `clock_step`."""
        self.process.stdin.close()
        self.process.stdin = None
        self.received, self.dropped, self.clock_step = (int(word) for word in self.read().split())
        self.process.wait()
        self.end()
        rows = numpy.fromfile(self._file, dtype=ROW)
        self._file.unlink()
        if self.received > len(rows):
            raise RuntimeError(f"the receiver had room for {len(rows)} of the {self.received} datagrams that came")
        if abs(self.clock_step) > LONGEST_CLOCK_STEP:
            raise RuntimeError(f"the wall clock was set by {self.clock_step} ns during a run; the times are worth nothing")
        return rows


class Service:
    """The real program with a data directory and a session bus of its own, and a client of that bus."""

    def __init__(self, show):
        """show: the Show whose data directory it plays."""
        self._root = paths.SCRATCH / "service"
        shutil.rmtree(self._root, ignore_errors=True)
        (self._root / "bin").mkdir(parents=True)
        os.symlink(show.root, self._root / "data")
        # A hard link or a copy, since the program finds its data beside its own file.
        program = self._root / "bin" / "cuewright"
        try:
            os.link(paths.SERVICE, program)
        except OSError:
            shutil.copy2(paths.SERVICE, program)
        self._bus = Program(["dbus-daemon", "--session", "--nofork", "--print-address=1"], stderr=subprocess.DEVNULL)
        self.environment = program_environment(DBUS_SESSION_BUS_ADDRESS=self._bus.read())
        self._client = Program([paths.tool("bench_client")], env=self.environment)
        self._started = time.monotonic_ns()
        self._service = Program([program], env=self.environment)
        self.start_seconds = (int(self._client.ask("wait")) - self._started) * 1e-9

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for program in (self._service, self._client, self._bus):
            program.end()
        shutil.rmtree(self._root, ignore_errors=True)

    @property
    def program(self):
        return self._service

    @property
    def pid(self):
        return self._service.pid

    def ask(self, line):
        """One line to the client; begin and end of the call in nanoseconds, and its result."""
        begin, end, result = self._client.ask(line).split()
        return int(begin), int(end), result

    def worker_seconds(self):
        """CPU seconds of the render worker so far."""
        return thread_seconds(self.pid, "cue-render")

    def play(self, playlist):
        begin, end, result = self.ask(f"call play_playlist {playlist}")
        if result != "1":
            raise RuntimeError(f"play_playlist {playlist} was refused")
        return begin, end

    def stop(self):
        self.ask("call stop")

    def zones(self, count, channels):
        """Zones 1 to `count`, each of all channels below `channels`."""
        if self.ask(f"zones {count} {channels}")[2] != "1":
            raise RuntimeError("the zones were refused")

    def announce(self, text):
        self._client.ask("nodes " + text)


def clean_scratch():
    shutil.rmtree(paths.SCRATCH, ignore_errors=True)
    Path(paths.SCRATCH).mkdir(parents=True)
