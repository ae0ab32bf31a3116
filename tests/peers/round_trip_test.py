"""Generate, play, forward, record, compare."""

import json
import shutil

from capture import Capture, frames_only
from compare import firsts, lateness, micro, rank, same_by_universe, same_packets, stamp_errors
from recording import read, spoil
from rig import (PEER_ADDRESS, PEER_LINK, Service, end_forwarder, need, ours, require, run, start_forwarder, start_recorder)

# The last one compares with a slower recording.
FAULTS = ("level", "loss", "twice", "milliseconds", "tempo")
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
    reference = rig.directory / "reference.rec"
    shutil.copy2(made, reference)
    if rig.fault == "tempo":
        spoil(reference, rig.fault)
    monitor = rig.start([*rig.peer, ours("cuewright-monitor"), "--packet-socket", PEER_LINK, "--compare", reference, "--until-idle", "5s", "--json"])
    monitor.wait_for("listening on")
    service.play(1)
    service.wait_for_end(1)
    recorder.finish()
    monitor.finish()
    end_forwarder(forwarder)
    captured = frames_only(capture.finish())
    # Kept, for a look at what a fault does.
    shutil.copy2(taken, rig.directory / "as-taken.rec")
    if rig.fault and rig.fault != "tempo":
        spoil(taken, rig.fault)
    wanted, recorded = read(made), read(taken)
    same_by_universe(wanted, recorded, "the round trip")
    same_packets(captured, recorded, "the recording against tshark's capture")
    errors = stamp_errors(recorded, captured)
    require(max(errors) <= STAMP_LIMIT, f"times of the recording are off tshark's by up to {micro(max(errors))}")
    # They are in the generated recording's order, universe by universe; that they are in its order altogether is seen here.
    same_packets(wanted, captured, "the order of the packets")
    late = lateness(wanted, captured)
    moments = [late[place] for place in firsts(wanted)]
    rig.say(f"{len(recorded)} packets of 8 universes, none lost, none repeated, all levels right; recorded times off tshark's by {micro(max(errors))} at most")
    for title, values in (("frames (first packet)", moments), ("packets", late)):
        rig.say(f"timing error of {title}: p50 {micro(rank(values, 50))}, p99 {micro(rank(values, 99))}, p99.9 {micro(rank(values, 99.9))}, "
                f"max {micro(max(values))}")
    judge_monitor(rig, json.loads(monitor.out[-1]), wanted, captured)


def judge_monitor(rig, told, wanted, captured):
    """The monitor's lateness, which counts from the first packet, against the lateness by tshark's time stamps."""
    late = [(packet.time - captured[0].time) - (frame.time - wanted[0].time) for frame, packet in zip(wanted, captured)]
    require((told["compared"], told["missing"], told["extra"]) == (len(wanted), 0, 0),
            f"the monitor compared {told['compared']} of {len(wanted)} packets, {told['missing']} missing, {told['extra']} extra")
    for name, value in (("min", min(late)), ("p50", rank(late, 50)), ("p99", rank(late, 99)), ("max", max(late))):
        require(abs(told["lateness_ns"][name] - value) <= STAMP_LIMIT,
                f"the monitor's {name} is {micro(told['lateness_ns'][name])}, by tshark's time stamps it is {micro(value)}")
    rig.say(f"the monitor says the same as tshark's time stamps: from the first packet on p50 {micro(told['lateness_ns']['p50'])}, p99 "
            f"{micro(told['lateness_ns']['p99'])}, max {micro(told['lateness_ns']['max'])}, min {micro(told['lateness_ns']['min'])}")
