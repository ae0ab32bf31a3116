"""Reads and spoils recordings, independently of the programs under test."""

from pathlib import Path
from typing import NamedTuple

from rig import require

IDENTIFIER = b"Art-Net\0"
ART_DMX, TIMING_MS, TIMING_NS = 0x5000, 0x00FF, 0x00FE


class Frame(NamedTuple):
    """One universe's packet."""
    time: int  # nanoseconds after the first packet
    first: bool  # the first packet of its moment
    universe: int
    levels: bytes


def pieces(file):
    """The packets of a recording as opcode and bytes; what is between them must be zeros."""
    data = Path(file).read_bytes()
    place = 0
    while (place := data.find(IDENTIFIER, place)) != -1:
        opcode = int.from_bytes(data[place + 8:place + 10], "little")
        size = {TIMING_MS: 14, TIMING_NS: 18}.get(opcode) or 18 + int.from_bytes(data[place + 16:place + 18], "big")
        require(opcode in (ART_DMX, TIMING_MS, TIMING_NS), f"{file}: opcode {opcode:#06x} at {place}")
        yield opcode, data[place:place + size]
        place += size
    require(len(data) % 512 == 0, f"{file}: {len(data)} bytes are no multiple of 512")


def nanoseconds(opcode, piece):
    if opcode == TIMING_NS:
        return int.from_bytes(piece[10:18], "little")
    return int.from_bytes(piece[10:14], "little") * 1_000_000


def read(file):
    """All ArtDmx packets of a recording with their times."""
    frames, time, first = [], 0, True
    for opcode, piece in pieces(file):
        if opcode == ART_DMX:
            frames.append(Frame(time, first, int.from_bytes(piece[14:16], "little"), piece[18:]))
            first = False
        else:
            time += nanoseconds(opcode, piece)
            first = True
    return frames


def write(file, parts):
    data = b"".join(parts)
    Path(file).write_bytes(data + bytes(-len(data) % 512))


def spoil(file, fault):
    """Plants a fault: `level` (one level of the last packet), `loss` (a packet in the middle is gone), `twice` (it is there
    twice), `milliseconds` (times cut to whole ones), `tempo` (1 % slower)."""
    parts = list(pieces(file))
    packets = [index for index, (opcode, _) in enumerate(parts) if opcode == ART_DMX]
    middle = packets[len(packets) // 2]
    spoiled = []
    for index, (opcode, piece) in enumerate(parts):
        if fault == "level" and index == packets[-1]:
            piece = piece[:-1] + bytes([piece[-1] ^ 1])
        if fault == "loss" and index == middle:
            continue
        if fault == "twice" and index == middle:
            spoiled.append(piece)
        if opcode != ART_DMX and fault in ("milliseconds", "tempo"):
            time = nanoseconds(opcode, piece)
            time = time // 1_000_000 * 1_000_000 if fault == "milliseconds" else time * 101 // 100
            piece = IDENTIFIER + TIMING_NS.to_bytes(2, "little") + time.to_bytes(8, "little")
        spoiled.append(piece)
    write(file, spoiled)
