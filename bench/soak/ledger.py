"""
Keeps the books of what arrives: every row of the receiver is entered once, in the order of arrival, and nothing of it is
kept but counts, so that a run may be of any length.
"""

import threading

from .lateness import Lateness
from .tracks import Steps, Track, frame_number

# A sequence byte is STEPS * playlist + frame number modulo STEPS.
STEPS = 32


class Reference:
    """A playlist that nobody touches while it plays: every frame of it is accounted for."""

    def __init__(self, playlist, universes, grid, brightness=100):
        """universes: a range. Frames are numbered 0 to grid.frames - 1 in channels 0 to 3. brightness: 100 or 50."""
        self.playlist = playlist
        self.grid = grid
        self.first = universes[0]
        self.doubled = brightness == 100
        self.tracks = {universe: Track(grid.frames) for universe in universes}
        self.lateness = Lateness(grid, grid.frames)

    def add(self, time, serial, universe):
        track = self.tracks.get(universe)
        if track is None:
            return False
        index = track.add(frame_number(serial, self.doubled), time)
        if index is not None and universe == self.first:
            self.lateness.add(index, time)
        return True

    def total(self, figure):
        return sum(getattr(track, figure) for track in self.tracks.values())

    @property
    def frames(self):
        """Frames that have come on all universes."""
        return min(track.index for track in self.tracks.values()) + 1

    @property
    def longest_gap(self):
        return max(track.longest_gap for track in self.tracks.values())

    def due(self, time):
        """Frames that were due at `time`; 0 before the first has come."""
        origin = self.lateness.origin
        return 0 if origin is None else self.grid.count(time - origin)


class Ledger:
    """Rows come from one thread, questions from another; each holds `lock`."""

    def __init__(self, references, slack, merged):
        """
        references: list of Reference. slack: the other playlists, of which only the steps are followed, by number, each
        with its slack. merged: those of them that are merged into the references' frames and so show their numbers.
        """
        self.lock = threading.Lock()
        self.references = references
        self.received = self.strangers = 0
        self.merged = self.stale = 0
        self._by_playlist = {reference.playlist: reference for reference in references}
        self._slack = slack
        self._steps = {playlist: {} for playlist in slack}
        self._merged = set(merged)
        # Channels 0 to 3 of the references' last frame, by universe.
        self._shown = {}

    def add(self, time, serial, universe, sequence, length):
        """One datagram: when it arrived, its channels 0 to 3, universe, sequence byte, and size in units of 4 bytes."""
        self.received += 1
        playlist, step = divmod(sequence, STEPS)
        if length != 133:
            self.strangers += 1
        elif playlist in self._by_playlist:
            self._shown[universe] = serial
            self.strangers += not self._by_playlist[playlist].add(time, serial, universe)
        elif playlist in self._steps:
            steps = self._steps[playlist]
            if universe not in steps:
                steps[universe] = Steps(STEPS, self._slack[playlist])
            steps[universe].add(step)
            if playlist in self._merged and universe in self._shown:
                self.merged += 1
                self.stale += serial != self._shown[universe]
        else:
            self.strangers += 1

    def unloaded(self, playlist):
        """The playlist's next frame may be its first."""
        for steps in self._steps[playlist].values():
            steps.may_restart()

    def followed(self, figure):
        return sum(getattr(steps, figure) for by_universe in self._steps.values() for steps in by_universe.values())

    def summary(self):
        """What came of each playlist that is followed: datagrams, faults, restarts."""
        return {playlist: {figure: sum(getattr(steps, figure) for steps in by_universe.values())
                           for figure in ("received", "faults", "restarts")}
                for playlist, by_universe in self._steps.items()}
