import unittest

from soak.tracks import Steps, Track, frame_number


def track_of(numbers, period=16):
    track = Track(period)
    for time, number in enumerate(numbers):
        track.add(number, time * 25)
    return track


def faults(track):
    return track.lost, track.repeated, track.disordered


class FrameNumberTest(unittest.TestCase):
    def test_digits_are_doubled_at_full_brightness_and_as_they_are_at_half(self):
        # 300 is 44 + 2 * 128.
        self.assertEqual(frame_number(88 | 4 << 8), 300)
        self.assertEqual(frame_number(44 | 2 << 8, doubled=False), 300)


class TrackTest(unittest.TestCase):
    def test_frames_in_their_turn_are_counted_over_loops(self):
        track = track_of([*range(16), *range(16), 0])
        self.assertEqual((track.index, track.received), (32, 33))
        self.assertEqual(faults(track), (0, 0, 0))

    def test_a_lost_frame_is_seen_and_not_counted(self):
        track = track_of([0, 1, 3, 4])
        self.assertEqual((track.index, track.received), (4, 4))
        self.assertEqual(faults(track), (1, 0, 0))

    def test_a_frame_lost_at_the_seam_of_the_loop_is_seen(self):
        self.assertEqual(faults(track_of([*range(15), 0, 1])), (1, 0, 0))

    def test_frames_lost_before_the_first_are_seen(self):
        self.assertEqual(faults(track_of([2, 3])), (2, 0, 0))

    def test_a_repeated_frame_is_seen(self):
        track = track_of([0, 1, 1, 2])
        self.assertEqual(faults(track), (0, 1, 0))
        self.assertEqual(track.received, 3)

    def test_an_overtaken_frame_counts_as_lost_and_out_of_order(self):
        self.assertEqual(faults(track_of([0, 2, 1, 3])), (1, 0, 1))

    def test_the_longest_gap_is_kept(self):
        track = Track(16)
        for number, time in enumerate((0, 25, 90, 115)):
            track.add(number, time)
        self.assertEqual(track.longest_gap, 65)


def steps_of(numbers, slack=0):
    steps = Steps(8, slack)
    for number in numbers:
        steps.add(number)
    return steps


class StepsTest(unittest.TestCase):
    def test_steps_go_round(self):
        self.assertEqual(steps_of([*range(8), *range(8), 0]).faults, 0)

    def test_a_lost_a_repeated_and_a_misplaced_step_are_faults(self):
        self.assertEqual(steps_of([0, 1, 3, 4]).faults, 1)
        self.assertEqual(steps_of([0, 1, 1, 2]).faults, 1)
        self.assertGreater(steps_of([0, 2, 1, 3]).faults, 0)

    def test_going_back_to_the_first_frame_is_allowed_once_after_unloading(self):
        steps = steps_of([0, 1, 2])
        steps.may_restart()
        steps.add(3)
        steps.add(0)
        self.assertEqual((steps.faults, steps.restarts), (0, 1))
        steps.add(1)
        steps.add(0)
        self.assertEqual(steps.faults, 1)

    def test_a_playlist_may_be_unloaded_twice_before_its_first_frame_is_seen_again(self):
        steps = steps_of([0, 1, 2])
        steps.may_restart()
        steps.may_restart()
        for step in (0, 1, 0, 1):
            steps.add(step)
        self.assertEqual((steps.faults, steps.restarts), (0, 2))

    def test_going_back_without_unloading_is_a_fault(self):
        self.assertEqual(steps_of([0, 1, 2, 0]).faults, 1)

    def test_with_slack_a_frame_may_overtake_but_none_may_be_missing(self):
        self.assertEqual(steps_of([0, 2, 1, 3, 4], slack=3).faults, 0)
        self.assertEqual(steps_of([0, 2, 3, 4, 5, 6], slack=3).faults, 1)
        self.assertGreater(steps_of([0, 1, 1, 2], slack=3).faults, 0)


if __name__ == "__main__":
    unittest.main()
