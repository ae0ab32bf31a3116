"""How late frames are against their grid: distribution, and drift with the jitter taken off."""

import bisect
import math

# Upper bounds in nanoseconds, four to each doubling, from 1 us to some 70 s.
BOUNDS = [1000.0 * 2 ** (step / 4) for step in range(105)]


class Lateness:
    """
    Frames are never early, so the least late one of a window shows the window's delay without the jitter; the least
    late one of the first window is the grid's origin.
    """

    def __init__(self, grid, window):
        """window: frames whose least late one counts."""
        self._grid = grid
        self._window = window
        # Arrival minus due time of the least late frame of each window, in nanoseconds of the receiver's clock.
        self.floors = []
        self._in_window = 0
        self.last = None
        # The latest of all frames after the first window and before the last frame, as `last` is.
        self._latest_before = None
        self._counts = [0] * (len(BOUNDS) + 1)

    def add(self, index, time):
        """Frame `index` arrived at `time`."""
        if len(self.floors) > 1:
            self._latest_before = max(self.last, self._latest_before or self.last)
        self.last = time - self._grid.due(index)
        if self._in_window == 0:
            self.floors.append(self.last)
        else:
            self.floors[-1] = min(self.floors[-1], self.last)
        self._in_window = (self._in_window + 1) % self._window
        # The origin stands once the first window is over.
        if len(self.floors) > 1:
            self._counts[bisect.bisect_left(BOUNDS, self.last - self.floors[0])] += 1

    @property
    def origin(self):
        """When frame 0 was due, in nanoseconds of the receiver's clock; None before the first frame."""
        return self.floors[0] if self.floors else None

    @property
    def drift(self):
        """Nanoseconds by which the last window is later than the first; a window that has just begun does not count."""
        whole = self.floors[:-1] if self._in_window and len(self.floors) > 1 else self.floors
        return whole[-1] - whole[0] if whole else 0

    @property
    def last_lateness(self):
        """Nanoseconds by which the last frame was late."""
        return self.last - self.origin if self.floors else 0

    @property
    def jitter(self):
        """Nanoseconds by which the latest frame before the last one was late, the first window left out."""
        return 0 if self._latest_before is None else self._latest_before - self.origin

    def quantile(self, part):
        """Upper bound of the lateness of that part of the frames, in nanoseconds, to a fifth of it."""
        wanted = part * sum(self._counts)
        seen = 0
        for bound, count in zip([*BOUNDS, math.inf], self._counts):
            seen += count
            if seen >= wanted and seen:
                return bound
        return 0.0
