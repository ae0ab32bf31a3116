import unittest

import numpy

from harness.analysis import Frames, order_faults
from harness.programs import ROW
from harness.scenarios.pacing import INTERVAL_NS, SETTLE_SECONDS, offsets_of, once_settled

START = 1_700_000_000_000_000_123


def serial(number):
    """What the receiver keeps of a frame with this number: channels 0 to 3, each twice a base-128 digit."""
    return sum(number // 128**place % 128 * 2 << 8 * place for place in range(4))


def played(universes, frames, period=80, sequence=1, late=None):
    """Rows of a player on time, 1 us from packet to packet; `late` tells a frame's lateness in ns."""
    rows = [(START + frame * INTERVAL_NS + (late(frame) if late else 0) + universe * 1000, serial(frame % period), universe, sequence, 138)
            for frame in range(frames) for universe in range(universes)]
    return numpy.array(rows, dtype=ROW)


class FramesTest(unittest.TestCase):
    def test_lateness_is_that_beyond_the_least_late_frame(self):
        frames = Frames(played(3, 4, late=lambda frame: (500, 700, 400, 900)[frame]), 3, INTERVAL_NS)
        self.assertEqual(list(frames.first_lateness), [100, 300, 0, 500])
        self.assertEqual(list(frames.last_lateness), [2100, 2300, 2000, 2500])
        self.assertEqual(list(frames.span), [2000] * 4)

    def test_deviations_are_those_of_every_universe(self):
        frames = Frames(played(2, 3, late=lambda frame: (0, 30, 10)[frame]), 2, INTERVAL_NS)
        self.assertEqual(sorted(frames.deviations), [20, 20, 30, 30])

    def test_drift_is_the_slope_in_millionths(self):
        frames = Frames(played(1, 400, late=lambda frame: frame * 25), 1, INTERVAL_NS)
        self.assertAlmostEqual(frames.drift_ppm(), 1.0, places=6)

    def test_a_constant_delay_is_no_drift(self):
        self.assertAlmostEqual(Frames(played(1, 400, late=lambda _: 7000), 1, INTERVAL_NS).drift_ppm(), 0.0, places=6)


class OrderTest(unittest.TestCase):
    def faults(self, rows, least=1):
        return order_faults(rows, 80, 2, 1, INTERVAL_NS, least)

    def test_what_is_whole_has_no_faults(self):
        self.assertEqual(self.faults(played(2, 200), least=200), 0)

    def test_a_lost_packet_shows(self):
        self.assertGreater(self.faults(numpy.delete(played(2, 200), 101)), 0)

    def test_a_repeated_packet_shows(self):
        rows = played(2, 200)
        self.assertGreater(self.faults(numpy.insert(rows, 101, rows[101])), 0)

    def test_packets_that_change_places_show(self):
        rows = played(2, 200)
        rows[[100, 101]] = rows[[101, 100]]
        self.assertGreater(self.faults(rows), 0)

    def test_a_lost_turn_of_the_recording_shows_in_the_times(self):
        self.assertEqual(self.faults(numpy.delete(played(2, 200), slice(2 * 80, 2 * 160))), 80)

    def test_falling_silent_shows(self):
        self.assertEqual(self.faults(played(2, 150), least=200), 100)


class SettledTest(unittest.TestCase):
    def test_the_first_second_is_left_out_and_a_frame_stays_whole(self):
        rest = once_settled(played(2, 100))
        first = int(SETTLE_SECONDS * 1e9) // INTERVAL_NS
        self.assertEqual(len(rest), 2 * (100 - first))
        self.assertEqual(rest["universe"][0], 0)
        self.assertEqual(rest["time"][0], START + first * INTERVAL_NS)

    def test_nothing_stays_of_nothing(self):
        self.assertEqual(len(once_settled(played(2, 0))), 0)


class OffsetsTest(unittest.TestCase):
    def offsets(self, *origins):
        class Part:
            def __init__(self, origin):
                self.origin = origin
        return offsets_of([Part(origin) for origin in origins])

    def test_they_count_from_the_earliest_within_an_interval(self):
        base = 4 * INTERVAL_NS
        self.assertEqual(self.offsets(base + 700, base + 100, base + 3 * INTERVAL_NS + 400), [0, 300, 600])

    def test_two_at_the_same_moment_stay_two(self):
        self.assertEqual(self.offsets(500, 500 + INTERVAL_NS), [0, 0])

    def test_all_lie_within_an_interval(self):
        self.assertEqual(self.offsets(10 * INTERVAL_NS - 20, 10 * INTERVAL_NS + 30), [0, INTERVAL_NS - 50])


if __name__ == "__main__":
    unittest.main()
