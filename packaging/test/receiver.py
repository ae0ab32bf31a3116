"""Receives Art-Net until both looks of the test's show have come, twice, in turn. Usage: receiver.py ADDRESS

Knows nothing of Cuewright's own code. Status 1, and what came instead, when they have not come after a minute.
"""

import socket
import struct
import sys
import time

LOOKS = [(255, 128), (0, 0)]
WANTED = 4  # changes of the look, so each has come twice


def main() -> int:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
        receiver.bind((sys.argv[1], 6454))
        receiver.settimeout(1)
        deadline = time.monotonic() + 60
        seen: list[tuple[int, ...]] = []
        while time.monotonic() < deadline:
            try:
                data = receiver.recv(2048)
            except TimeoutError:
                continue
            identifier, opcode, universe, length = struct.unpack("<8sH4xH", data[:16])[0:3] + struct.unpack(">H", data[16:18])
            levels = tuple(data[18:20])
            if identifier != b"Art-Net\0" or opcode != 0x5000 or universe != 0 or length != 2 or levels not in LOOKS:
                print(f"unexpected: {data[:32]!r}")
                return 1
            if not seen or seen[-1] != levels:
                seen.append(levels)
                print(f"ArtDmx, universe {universe}, levels {levels[0]} {levels[1]}", flush=True)
            if len(seen) == WANTED:
                return 0
    print(f"too few frames after a minute: {seen}")
    return 1


if __name__ == "__main__":
    sys.exit(main())
