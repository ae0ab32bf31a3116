"""Generate, play, forward, record, compare."""

import shutil

from capture import Capture, frames_only
from compare import firsts, lateness, micro, rank, same_by_universe, same_packets, stamp_errors
from recording import read, spoil
from rig import (PEER_ADDRESS, PEER_LINK, Service, end_forwarder, need, ours, require, run, start_forwarder, start_recorder)

FAULTS = ("level", "loss", "twice", "milliseconds")
STAMP_LIMIT = 1_000


def test(rig):
    need("tshark", "tshark")
    made, taken = rig.directory / "made.rec", rig.directory / "taken.rec"
    run([ours("cuewright-recording"), "generate", "--pattern", "random", "--universes", "0-7", "--seconds", 10, made])
    service = Service(rig)
    service.add(1, made, [f"*:{PEER_ADDRESS}:6454"])
    service.start()
    forwarder = start_forwarder(rig)
    capture = Capture(rig, PEER_LINK, rig.peer)
    recorder = start_recorder(rig, taken, prefix=rig.peer)
    service.play(1)
    service.wait_for_end(1)
    recorder.finish()
    end_forwarder(forwarder)
    captured = frames_only(capture.finish())
    # Kept, for a look at what a fault does.
    shutil.copy2(taken, rig.directory / "as-taken.rec")
    if rig.fault:
        spoil(taken, rig.fault)
    wanted, recorded = read(made), read(taken)
    same_by_universe(wanted, recorded, "the round trip")
    same_packets(captured, recorded, "the recording against tshark's capture")
    errors = stamp_errors(recorded, captured)
    require(max(errors) <= STAMP_LIMIT, f"times of the recording are off tshark's by up to {micro(max(errors))}")
    same_order = sorted(range(len(wanted)), key=lambda place: (wanted[place].time, place))
    late = lateness([wanted[place] for place in same_order], captured)
    moments = [late[place] for place in firsts(wanted)]
    rig.say(f"{len(recorded)} packets of 8 universes, none lost, none repeated, all levels right; recorded times off tshark's by {micro(max(errors))} at most")
    for title, values in (("frames (first packet)", moments), ("packets", late)):
        rig.say(f"timing error of {title}: p50 {micro(rank(values, 50))}, p99 {micro(rank(values, 99))}, p99.9 {micro(rank(values, 99.9))}, "
                f"max {micro(max(values))}")
