"""What rows of received datagrams say about pacing, order and loss."""

import numpy


def quantiles(values, points=(0.5, 0.99, 1.0)):
    values = numpy.asarray(values, dtype=float)
    if values.size == 0:
        return [float("nan")] * len(points)
    return [float(numpy.quantile(values, point)) for point in points]


def rate(rows, dropped):
    """Datagrams per second from the first to the last, those included that the receiver's kernel dropped."""
    seconds = (rows["time"][-1] - rows["time"][0]) * 1e-9
    return (len(rows) + dropped - 1) / seconds


def frame_numbers(rows):
    """The number in channels 0 to 3 of full-brightness packets."""
    serial = rows["serial"].astype(numpy.int64)
    digits = [(serial >> shift & 0xFF) // 2 for shift in (0, 8, 16, 24)]
    return digits[0] + 128 * (digits[1] + 128 * (digits[2] + 128 * digits[3]))


def order_faults(rows, period):
    """Frames lost, repeated or out of order: steps of a playlist's universe that are not by one, modulo `period`."""
    numbers = frame_numbers(rows)
    faults = 0
    for sequence in numpy.unique(rows["sequence"]):
        of_playlist = rows["sequence"] == sequence
        for universe in numpy.unique(rows["universe"][of_playlist]):
            own = numbers[of_playlist & (rows["universe"] == universe)]
            faults += int(numpy.count_nonzero(numpy.diff(own) % period != 1 % period))
    return faults


class Frames:
    """First and last packet times of each complete frame of one playlist, and its universes' intervals."""

    def __init__(self, rows, universes, interval_ns):
        first = rows["time"][rows["universe"] == 0]
        last = rows["time"][rows["universe"] == universes - 1]
        count = min(len(first), len(last))
        self.first, self.last = first[:count], last[:count]
        self.interval = interval_ns
        self.deviations = numpy.concatenate(
            [numpy.abs(numpy.diff(rows["time"][rows["universe"] == u]) - interval_ns) for u in range(universes)]
        )
        grid = numpy.arange(count, dtype=numpy.int64) * interval_ns
        # Frames are never early, so the earliest one, measured against the grid, is the grid's origin.
        origin = numpy.min(self.first - grid) if count else 0
        self.first_lateness = self.first - grid - origin
        self.last_lateness = self.last - grid - origin
        self.span = self.last - self.first

    def drift_ppm(self):
        """Least-squares slope of the lateness over time, in millionths."""
        count = len(self.first)
        if count < 2:
            return float("nan")
        due = numpy.arange(count, dtype=float) * self.interval
        return float(numpy.polyfit(due, self.first_lateness.astype(float), 1)[0] * 1e6)
