"""What one universe of one playlist shows: frames lost, repeated, out of order, and the gaps between them."""

BASE = 128


def frame_number(serial, doubled=True):
    """
    The number that channels 0 to 3 show: four digits of base 128, least first; doubled at full brightness, and as
    they are at 50 percent.
    """
    digits = [(serial >> shift & 0xFF) >> doubled for shift in (0, 8, 16, 24)]
    return digits[0] + BASE * (digits[1] + BASE * (digits[2] + BASE * digits[3]))


class Track:
    """Frames that are numbered 0 to `period` - 1 and then again from 0, followed through their loops."""

    def __init__(self, period):
        self._period = period
        # Index of the last frame, over all loops; -1 before the first.
        self.index = -1
        self.lost = self.repeated = self.disordered = 0
        self.longest_gap = 0
        self.last_time = None

    @property
    def received(self):
        """Frames that came in their turn."""
        return self.index + 1 - self.lost

    def add(self, number, time):
        """A frame with that number arrived; its index over all loops, or None for one that is not new."""
        if self.last_time is not None:
            self.longest_gap = max(self.longest_gap, time - self.last_time)
        self.last_time = time
        # What comes first is frame 0, or frames before it are lost.
        step = number + 1 if self.index < 0 else (number - self.index) % self._period
        if step == 0:
            self.repeated += 1
            return None
        if step > self._period // 2 and self.index >= 0:
            self.disordered += 1
            return None
        self.lost += step - 1
        self.index += step
        return self.index


class Steps:
    """The sequence bytes of a playlist that is paused, sped up, stopped and played anew: steps by one, modulo `steps`."""

    def __init__(self, steps, slack=0):
        """slack: steps by which a frame may overtake others, where frames go to changing destinations."""
        self._steps = steps
        self._slack = slack
        self._next = 0
        self._early = set()
        self._restarts_due = 0
        self.received = self.faults = self.restarts = 0

    def may_restart(self):
        """
        The playlist has been unloaded: once, it may go back to its first frame. It may be unloaded again before that
        frame is seen here.
        """
        self._restarts_due += 1

    def add(self, step):
        self.received += 1
        ahead = (step - self._next) % self._steps
        if ahead == 0:
            self._go_on_after(step)
            while self._next in self._early:
                self._early.remove(self._next)
                self._go_on_after(self._next)
        elif step == 0 and self._restarts_due:
            self._restarts_due -= 1
            self.restarts += 1
            self.faults += bool(self._early)
            self._resume_after(step)
        elif ahead <= self._slack and step not in self._early:
            self._early.add(step)
        else:
            self.faults += 1
            self._resume_after(step)

    def _go_on_after(self, step):
        self._next = (step + 1) % self._steps

    def _resume_after(self, step):
        self._early.clear()
        self._go_on_after(step)
