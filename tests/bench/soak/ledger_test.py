import unittest

from soak.grid import Grid
from soak.ledger import STEPS, Ledger, Reference

PACKET, DATAGRAM = 133, 139
INTERVAL = 25_000_000


def serial(number):
    return number % 128 * 2 | number // 128 * 2 << 8


class LedgerTest(unittest.TestCase):
    """One reference, playlist 1, on universes 0 and 1; playlist 2 is merged into it, playlist 3 is not."""

    def setUp(self):
        self.reference = Reference(1, range(2), Grid(64, INTERVAL))
        self.ledger = Ledger([self.reference], {2: 0, 3: 0}, merged=[2])

    def frame(self, number, late=0):
        for universe in range(2):
            self.ledger.add(number * INTERVAL + late, serial(number % 64), universe, STEPS + number % STEPS, PACKET)

    def test_every_frame_of_a_reference_is_accounted_for(self):
        for number in range(200):
            self.frame(number)
        self.assertEqual(self.reference.frames, 200)
        self.assertEqual(self.reference.total("received"), 400)
        self.assertEqual(self.reference.total("lost"), 0)
        self.assertEqual(self.reference.lateness.drift, 0)

    def test_a_row_that_is_missing_is_a_lost_frame(self):
        for number in range(200):
            if number != 77:
                self.frame(number)
        self.assertEqual(self.reference.total("lost"), 2)

    def test_jitter_is_no_drift(self):
        for number in range(640):
            self.frame(number, late=number * 37 % 64 * 100_000)
        self.assertEqual(self.reference.lateness.drift, 0)
        self.assertEqual(self.reference.lateness.jitter, 63 * 100_000)
        self.assertEqual(self.reference.longest_gap, INTERVAL + 37 * 100_000)

    def test_a_clock_that_runs_off_shows_as_drift(self):
        for number in range(640):
            self.frame(number, late=number * 10_000)
        # From the first frame of the first loop to the first frame of the last one.
        self.assertEqual(self.reference.lateness.drift, 9 * 64 * 10_000)
        self.assertEqual(self.reference.lateness.last_lateness, 639 * 10_000)

    def test_merged_frames_show_the_number_of_the_reference_s_last_frame(self):
        self.frame(0)
        self.frame(1)
        self.ledger.add(0, serial(1), 0, 2 * STEPS, PACKET)
        self.assertEqual((self.ledger.merged, self.ledger.stale), (1, 0))
        self.ledger.add(0, serial(0), 0, 2 * STEPS + 1, PACKET)
        self.assertEqual((self.ledger.merged, self.ledger.stale), (2, 1))

    def test_a_playlist_that_goes_elsewhere_need_not_show_it(self):
        self.frame(5)
        self.ledger.add(0, serial(0), 0, 3 * STEPS, PACKET)
        self.assertEqual((self.ledger.merged, self.ledger.stale), (0, 0))

    def test_what_nobody_should_have_sent_is_counted(self):
        self.ledger.add(0, 0, 0, 9, PACKET)
        self.ledger.add(0, 0, 7, STEPS, PACKET)
        self.ledger.add(0, 0, 0, STEPS, DATAGRAM)
        self.assertEqual(self.ledger.strangers, 3)

    def test_an_unloaded_playlist_may_begin_anew(self):
        for step in (0, 1, 2):
            self.ledger.add(0, 0, 0, 3 * STEPS + step, PACKET)
        self.ledger.unloaded(3)
        self.ledger.add(0, 0, 0, 3 * STEPS, PACKET)
        self.assertEqual(self.ledger.followed("faults"), 0)
        self.assertEqual(self.ledger.summary()[3], {"received": 4, "faults": 0, "restarts": 1})


if __name__ == "__main__":
    unittest.main()
