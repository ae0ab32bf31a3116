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


def order_faults(rows, period, universes, sequence, interval_ns, least=1, restarts=False):
    """
    Packets lost, repeated or out of order, of the playlist that `sequence` names.

    Each frame holds universes 0 to `universes` - 1 in this order, begins with number 0 and goes on by one, modulo
    `period`; `restarts`: or begins anew. A loss of whole periods, which the numbers hide, shows in the times. At least `least` frames must have come.
    """
    own = rows[rows["sequence"] == sequence]
    if len(own) < least * universes:
        return int(least * universes - len(own))
    numbers = frame_numbers(own)
    faults = int(len(own) % universes != 0)
    faults += int(numpy.count_nonzero(own["universe"] != numpy.arange(len(own)) % universes))
    faults += int(numpy.count_nonzero(numbers[:universes] != 0))
    for universe in range(universes):
        of_universe = numbers[own["universe"] == universe]
        wrong = numpy.diff(of_universe) % period != 1 % period
        faults += int(numpy.count_nonzero(wrong & (of_universe[1:] != 0) if restarts else wrong))
    if not restarts:
        first = own["time"][own["universe"] == 0]
        expected = round((int(first[-1]) - int(first[0])) / interval_ns) + 1
        faults += abs(round((expected - len(first)) / period)) * period
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
        self.origin = int(origin)
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
