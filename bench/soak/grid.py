"""When the frames of a looping playlist are due: the sum of their delays."""


class Grid:
    """Frames of `interval` nanoseconds, `frames` to a loop; the loop's last one stands for `last`."""

    def __init__(self, frames, interval, last=None):
        self.frames = frames
        self.interval = interval
        self.loop = (frames - 1) * interval + (interval if last is None else last)

    def due(self, index):
        """Nanoseconds from the first frame to frame `index`, counted over all loops."""
        loops, frame = divmod(index, self.frames)
        return loops * self.loop + frame * self.interval

    def count(self, elapsed):
        """How many frames are due once `elapsed` nanoseconds have passed since the first one was."""
        if elapsed < 0:
            return 0
        loops, rest = divmod(elapsed, self.loop)
        return loops * self.frames + min(rest // self.interval, self.frames - 1) + 1
