"""What leaves the forwarder, seen by tshark's dissector and by OLA's daemon."""

import socket

from capture import Capture, frames_only, require_well_formed
from compare import same_packets
from ola import UNIVERSES, Ola
from recording import read, spoil
from rig import PEER_ADDRESS, PEER_LINK, Service, end_forwarder, need, ours, require, run, start_forwarder, until

# `level` is noticed by what OLA has, `loss` by what tshark has.
FAULTS = ("level", "loss", "malformed")
ART_SYNC = 0x5200
EXPEDITED_FORWARDING = 46
# An ArtDmx that ends before its levels do.
CUT_OFF = b"Art-Net\0\0\x50\0\x0e\1\0\x00\x00\x02\x00" + bytes(10)

# Channels, and options of the forwarder. An ArtDmx with fewer than 512 channels leaves a plain forwarder with the zeros behind them.
CASES = ((512, ()), (100, ()), (100, ("--sequence", "--sync", "--trim", "--dscp")))


def test(rig):
    need("tshark", "tshark")
    ola = Ola(rig)
    service = Service(rig)
    files = []
    for number, (channels, _) in enumerate(CASES, 1):
        file = rig.directory / f"{number}.rec"
        run([ours("cuewright-recording"), "generate", "--pattern", "random", "--seed", number, "--universes", f"{UNIVERSES[0]}-{UNIVERSES[-1]}",
             "--channels", channels, "--seconds", 3, file])
        files.append(read(file))
        if rig.fault in ("level", "loss"):
            spoil(file, rig.fault)
        service.add(number, file, [f"*:{PEER_ADDRESS}:6454"])
    service.start()
    for number, (channels, options) in enumerate(CASES, 1):
        play(rig, service, ola, number, files[number - 1], options, f"{channels} channels, {' '.join(options) or 'no options'}")


def play(rig, service, ola, number, frames, options, what):
    """Plays one case and judges what came."""
    capture = Capture(rig, PEER_LINK, rig.peer)
    forwarder = start_forwarder(rig, *options)
    wanted = {universe: [frame.levels for frame in frames if frame.universe == universe] for universe in UNIVERSES}
    looks = {universe: [] for universe in UNIVERSES}

    def look():
        for universe in UNIVERSES:
            levels = ola.levels(universe)
            if levels and (not looks[universe] or looks[universe][-1] != levels):
                looks[universe].append(levels)

    if rig.fault == "malformed":
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as intruder:
            intruder.sendto(CUT_OFF, (PEER_ADDRESS, 6454))
    look()
    before = {universe: tuple(seen) for universe, seen in looks.items()}
    service.play(number)
    service.wait_for_end(number, look)
    end_forwarder(forwarder)
    packets = capture.finish()
    # The last look stands; what was seen before it must have been in the recording, in its order.
    for universe in UNIVERSES:
        until(f"OLA to show the last look of universe {universe}, {what}", lambda one=universe: ola.levels(one) == wanted[one][-1], 30)
        place = 0
        for levels in looks[universe][len(before[universe]):]:
            require(levels in wanted[universe][place:], f"OLA had levels in universe {universe} that the recording does not have there, {what}")
            place = wanted[universe].index(levels, place)
    require_well_formed(packets)
    seen = frames_only(packets)
    same_packets(frames, seen, f"tshark, {what}")
    require(all(packet.length == len(packet.levels) for packet in seen), f"{what}: Length and levels differ")
    if options:
        require_options(packets, seen)
    caught = sum(len(seen_looks) - len(before[universe]) for universe, seen_looks in looks.items())
    syncs = sum(packet.opcode == ART_SYNC for packet in packets)
    rig.say(f"{what}: tshark decoded {len(seen)} ArtDmx" + (f" and {syncs} ArtSync" if syncs else "") +
            f"; {caught} of their looks read from OLA while they played, and the last ones")


def require_options(packets, seen):
    require(any(packet.opcode == ART_SYNC for packet in packets), "no ArtSync")
    require(all(packet.dscp == EXPEDITED_FORWARDING for packet in packets), "not all packets are marked")
    require(all(len(packet.payload) == 18 + packet.length for packet in seen), "packets are longer than their Length")
    for universe in UNIVERSES:
        numbers = [packet.sequence for packet in seen if packet.universe == universe]
        require(numbers == [index % 255 + 1 for index in range(len(numbers))], f"universe {universe} is numbered {numbers[:10]}...")
