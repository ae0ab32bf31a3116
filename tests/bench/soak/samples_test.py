import os
import unittest

from soak.samples import growth, look


def sample(seconds, rss_kib, descriptors=14, threads=3):
    return {"seconds": seconds, "rss_kib": rss_kib, "descriptors": descriptors, "threads": threads}


class GrowthTest(unittest.TestCase):
    def test_a_steady_leak_has_its_slope_in_kilobytes_of_1000(self):
        figures = growth([sample(10.0 * number, 20_000 + 10 * number) for number in range(7)])
        # 1 KiB a second, for 60 seconds.
        self.assertAlmostEqual(figures["slope_kb_per_hour"], 1.024 * 3600)
        self.assertAlmostEqual(figures["growth_kb"], 1.024 * 60)

    def test_what_comes_and_goes_is_no_growth(self):
        figures = growth([sample(0, 20_000), sample(10, 20_400), sample(20, 20_400), sample(30, 20_000)])
        self.assertAlmostEqual(figures["slope_kb_per_hour"], 0.0)

    def test_descriptors_and_threads_are_compared_with_the_first_sample(self):
        figures = growth([sample(0, 1), sample(10, 1, 16, 4), sample(20, 1)])
        self.assertEqual((figures["descriptors"], figures["threads"]), ((14, 16), (3, 4)))

    def test_without_samples_there_is_nothing_to_tell(self):
        self.assertEqual(growth([])["samples"], 0)

    def test_a_process_is_looked_at(self):
        before = look(os.getpid())
        with open("/dev/null", "rb"):
            self.assertEqual(look(os.getpid())["descriptors"], before["descriptors"] + 1)
        self.assertGreater(before["rss_kib"], 0)
        self.assertEqual(before["threads"], 1)


if __name__ == "__main__":
    unittest.main()
