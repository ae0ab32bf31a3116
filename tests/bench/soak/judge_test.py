import copy
import unittest

from soak import judge
from soak.slope import slope

REFERENCE = {
    "name": "playlist 1", "universes": 8, "due_before": 4800, "due_after": 4801, "frames": 4801, "received": 8 * 4801,
    "lost": 0, "repeated": 0, "disordered": 0, "drift_ns": 40_000, "last_ns": 3_000_000, "gap_ns": 60_000_000,
    "frame_ns": 25_000_000,
}
FORWARDER = {
    "ports": [{"received": 1000}], "destinations": [{"packets": 600, "errors": 0, "unsent": 0}, {"packets": 400, "errors": 0, "unsent": 0}],
    "rejected": {"size": 0, "port": 0}, "kernel_drops": 0, "left_behind": 0,
}
BOOKS = {
    "followed": 700, "faults": 0, "merged": 500, "stale": 0, "strangers": 0, "received": 1000, "far_side_drops": 0,
    "forwarder": FORWARDER, "service_sent": 1000, "kernel_losses": 0,
}
RESOURCES = {"samples": 20, "rss_kib": 20_000, "slope_kb_per_hour": 100.0, "growth_kb": 20.0, "descriptors": (14, 14), "threads": (3, 3)}


class ReferenceTest(unittest.TestCase):
    def verdict(self, quiet=False, **changed):
        return judge.verdict(judge.reference_checks({**REFERENCE, **changed}, quiet))

    def test_a_run_without_fault_holds(self):
        self.assertTrue(self.verdict())

    def test_one_frame_too_few_or_too_many_fails(self):
        self.assertFalse(self.verdict(frames=4799, received=8 * 4799))
        self.assertFalse(self.verdict(frames=4802, received=8 * 4802))

    def test_one_packet_missing_on_one_universe_fails(self):
        self.assertFalse(self.verdict(received=8 * 4801 - 1))

    def test_one_frame_lost_repeated_or_out_of_order_fails(self):
        for fault in ("lost", "repeated", "disordered"):
            self.assertFalse(self.verdict(**{fault: 1}), fault)

    def test_drift_of_more_than_a_millisecond_either_way_fails(self):
        for drift in (1_000_001, -1_000_001):
            self.assertFalse(self.verdict(drift_ns=drift))

    def test_a_last_frame_later_than_a_frame_lasts_fails(self):
        self.assertTrue(self.verdict(last_ns=25_000_000))
        self.assertFalse(self.verdict(last_ns=25_000_001))

    def test_a_standstill_in_between_excuses_no_late_last_frame(self):
        self.assertTrue(self.verdict(gap_ns=5_000_000_000, last_ns=25_000_000))
        self.assertFalse(self.verdict(gap_ns=5_000_000_000, last_ns=25_000_001))
        self.assertFalse(self.verdict(jitter_ns=5_000_000_000, last_ns=25_000_001))

    def test_a_gap_of_more_than_five_seconds_fails(self):
        self.assertTrue(self.verdict(gap_ns=5_025_000_000))
        self.assertFalse(self.verdict(gap_ns=5_025_000_001))

    def test_on_a_quiet_machine_a_gap_of_more_than_a_tenth_of_a_second_fails(self):
        self.assertTrue(self.verdict(quiet=True, gap_ns=125_000_000))
        self.assertFalse(self.verdict(quiet=True, gap_ns=125_000_001))


class BooksTest(unittest.TestCase):
    def verdict(self, change=lambda books: None, **changed):
        books = {**copy.deepcopy(BOOKS), **changed}
        change(books)
        return judge.verdict(judge.book_checks(books))

    def test_books_that_agree_hold(self):
        self.assertTrue(self.verdict())

    def test_books_without_the_kernel_s_counts_hold(self):
        self.assertTrue(self.verdict(service_sent=None, kernel_losses=None))

    def test_a_datagram_lost_on_any_leg_fails(self):
        self.assertFalse(self.verdict(service_sent=1001))
        self.assertFalse(self.verdict(lambda books: books["forwarder"]["destinations"][0].update(packets=599)))
        self.assertFalse(self.verdict(received=999))

    def test_every_kind_of_fault_fails(self):
        for figure in ("faults", "stale", "strangers", "far_side_drops", "kernel_losses"):
            self.assertFalse(self.verdict(**{figure: 1}), figure)
        for figure in ("kernel_drops", "left_behind"):
            self.assertFalse(self.verdict(lambda books, name=figure: books["forwarder"].update({name: 1})), figure)
        for figure in ("errors", "unsent"):
            self.assertFalse(self.verdict(lambda books, name=figure: books["forwarder"]["destinations"][1].update({name: 1})), figure)
        self.assertFalse(self.verdict(lambda books: books["forwarder"]["rejected"].update(size=1)))

    def test_a_forwarder_that_left_no_counters_fails(self):
        self.assertFalse(self.verdict(forwarder=None))

    def test_a_run_in_which_nothing_was_merged_fails(self):
        self.assertFalse(self.verdict(merged=0))


class ResourcesTest(unittest.TestCase):
    def verdict(self, **changed):
        return judge.verdict(judge.resource_checks("cuewright", {**RESOURCES, **changed}))

    def test_a_program_that_holds_what_it_held_passes(self):
        self.assertTrue(self.verdict())

    def test_a_leak_fails_and_the_noise_of_a_short_run_does_not(self):
        self.assertFalse(self.verdict(slope_kb_per_hour=600.0, growth_kb=600.0))
        self.assertTrue(self.verdict(slope_kb_per_hour=500.0, growth_kb=5000.0))
        self.assertTrue(self.verdict(slope_kb_per_hour=2000.0, growth_kb=60.0))

    def test_one_descriptor_or_thread_more_fails(self):
        self.assertFalse(self.verdict(descriptors=(14, 15)))
        self.assertFalse(self.verdict(threads=(3, 4)))

    def test_a_run_too_short_to_sample_fails(self):
        self.assertFalse(self.verdict(samples=1))

    def test_the_slope_is_that_of_the_line_through_the_samples(self):
        self.assertEqual(slope([(0, 5), (10, 25), (20, 45)]), 2.0)
        self.assertEqual(slope([(0, 1), (1, 3), (2, 1), (3, 3)]), 0.4)
        self.assertEqual(slope([(0, 5)]), 0.0)


class ControlTest(unittest.TestCase):
    def verdict(self, calls, wrong, longest_ms, quiet=False):
        return judge.verdict(judge.control_checks(calls, wrong, longest_ms, "stop_playlist", quiet))

    def test_a_wrong_answer_or_a_stuck_call_fails(self):
        self.assertTrue(self.verdict(900, 0, 55.0))
        self.assertFalse(self.verdict(900, 1, 55.0))
        self.assertTrue(self.verdict(900, 0, 5000.0))
        self.assertFalse(self.verdict(900, 0, 5000.1))

    def test_on_a_quiet_machine_a_call_of_more_than_a_tenth_of_a_second_fails(self):
        self.assertTrue(self.verdict(900, 0, 100.0, quiet=True))
        self.assertFalse(self.verdict(900, 0, 100.1, quiet=True))

    def test_a_run_in_which_others_took_a_twentieth_of_a_core_was_not_quiet(self):
        self.assertTrue(judge.quiet({"others": 0.04, "steal": 0.01}))
        self.assertFalse(judge.quiet({"others": 0.04, "steal": 0.011}))

    def test_a_run_without_a_control_call_fails(self):
        self.assertTrue(self.verdict(1, 0, 55.0))
        self.assertFalse(self.verdict(0, 0, 0.0))

    def test_a_program_that_ended_fails_and_is_named(self):
        check = judge.end_check("cuewright-forwarder ended, signal 9")
        self.assertFalse(check.good)
        self.assertIn("cuewright-forwarder ended, signal 9  FAILED", "\n".join(judge.table([check])))


if __name__ == "__main__":
    unittest.main()
