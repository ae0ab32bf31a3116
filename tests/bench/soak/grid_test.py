import unittest

from soak.grid import Grid


class GridTest(unittest.TestCase):
    def test_frames_of_a_loop_follow_each_other_by_the_interval(self):
        grid = Grid(4, 25)
        self.assertEqual([grid.due(index) for index in range(6)], [0, 25, 50, 75, 100, 125])

    def test_the_last_frame_of_a_loop_stands_for_its_own_time(self):
        grid = Grid(4, 25, last=30)
        self.assertEqual([grid.due(index) for index in range(3, 6)], [75, 105, 130])
        self.assertEqual(grid.due(4 * 1000), 105 * 1000)

    def test_a_frame_counts_from_the_moment_at_which_it_is_due(self):
        grid = Grid(4, 25, last=30)
        for index in range(12):
            self.assertEqual(grid.count(grid.due(index) - 1), index)
            self.assertEqual(grid.count(grid.due(index)), index + 1)


if __name__ == "__main__":
    unittest.main()
