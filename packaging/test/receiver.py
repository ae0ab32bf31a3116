"""Receives Art-Net until all of the test's show has come. Usage: receiver.py blink|sample ADDRESS

Knows nothing of Cuewright's own code. Prints a line for each part of the show that it has seen. Status 1, and what came
instead, at the first frame that does not belong to it, or when the show is not complete after two minutes.
"""

import socket
import struct
import sys
import time

PORT = 6454
DEADLINE = 120  # seconds; emulated programs take their time to start


class Unexpected(Exception):
    """A frame that the show does not have."""


class Blink:
    """Two channels of universe 0: both looks, twice, in turn."""

    LOOKS = [(255, 128), (0, 0)]
    CHANGES = 4

    def __init__(self) -> None:
        self.seen: list[tuple[int, ...]] = []

    def take(self, universe: int, levels: tuple[int, ...]) -> bool:
        if universe != 0 or levels not in self.LOOKS:
            raise Unexpected
        if not self.seen or self.seen[-1] != levels:
            self.seen.append(levels)
        if len(self.seen) < self.CHANGES:
            return False
        print("blinks", flush=True)
        return True


class Sample:
    """A chase in four universes; a still look in the middle of two of them, which comes and goes."""

    CHANNELS = 16
    TAIL = (255, 128, 64, 32)
    MIDDLE = range(4, 12)
    UNIVERSES = range(4)
    MERGED = range(2)
    PARTS = ["the chase, whole", "the chase around the still look", "the chase, whole again"]

    def __init__(self) -> None:
        self.part = 0
        # Per universe, the places of the chase that were seen in the present part, and the latest middle.
        self.places: list[set[int]] = [set() for _ in self.UNIVERSES]
        self.middle: dict[int, list[int]] = {}
        self.looks = [
            [self.TAIL[(place - channel) % self.CHANNELS] if (place - channel) % self.CHANNELS < len(self.TAIL) else 0
             for channel in range(self.CHANNELS)]
            for place in range(self.CHANNELS)
        ]

    def outside(self, levels: list[int]) -> list[int]:
        return [level for channel, level in enumerate(levels) if channel not in self.MIDDLE]

    def inside(self, levels: list[int]) -> list[int]:
        return [levels[channel] for channel in self.MIDDLE]

    def take(self, universe: int, levels: tuple[int, ...]) -> bool:
        if universe not in self.UNIVERSES or len(levels) != self.CHANNELS:
            raise Unexpected
        frame = list(levels)
        merged_part = self.part == 1 and universe in self.MERGED
        if frame in self.looks:
            if not merged_part:
                self.places[universe].add(self.looks.index(frame))
        else:
            places = [place for place, look in enumerate(self.looks) if self.outside(look) == self.outside(frame)]
            if universe not in self.MERGED or not places:
                raise Unexpected
            if self.inside(frame) == [universe * 16 + channel for channel in self.MIDDLE]:
                # Where the bright one is in the middle, the outside does not tell one place from another.
                if merged_part and len(places) == 1:
                    self.places[universe].add(places[0])
            elif self.inside(frame) != self.middle.get(universe):
                # Only while the channels change hands do they stand as they were.
                raise Unexpected
        self.middle[universe] = self.inside(frame)
        # The chase has been everywhere; around the look, everywhere that shows.
        if any(len(self.places[u]) < (8 if self.part == 1 and u in self.MERGED else self.CHANNELS) for u in self.UNIVERSES):
            return False
        print(self.PARTS[self.part], flush=True)
        self.part += 1
        self.places = [set() for _ in self.UNIVERSES]
        return self.part == len(self.PARTS)


def main() -> int:
    show = {"blink": Blink, "sample": Sample}[sys.argv[1]]()
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
        # The discovery shares the port.
        receiver.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        receiver.bind((sys.argv[2], PORT))
        receiver.settimeout(1)
        deadline = time.monotonic() + DEADLINE
        frames = 0
        while time.monotonic() < deadline:
            try:
                data = receiver.recv(2048)
            except TimeoutError:
                continue
            try:
                if len(data) < 18 or data[:8] != b"Art-Net\0" or struct.unpack("<H", data[8:10])[0] != 0x5000:
                    raise Unexpected
                (universe,), (length,) = struct.unpack("<H", data[14:16]), struct.unpack(">H", data[16:18])
                if len(data) < 18 + length:
                    raise Unexpected
                frames += 1
                if show.take(universe, tuple(data[18 : 18 + length])):
                    print(f"{frames} frames, none that the show does not have")
                    return 0
            except Unexpected:
                print(f"unexpected, after {frames} frames: {data[:40].hex(' ')}")
                return 1
    print(f"not complete after {DEADLINE} seconds and {frames} frames: {vars(show)}")
    return 1


if __name__ == "__main__":
    sys.exit(main())
