"""Foreign senders recorded and played back."""

import collections
import json
import shutil
import time

from capture import Capture, frames_only
from compare import firsts, interval_errors, micro, rank, same_packets, stamp_errors
from ola import OUTPUT_UNIVERSE, Ola
from recording import read, spoil
from rig import (OUR_ADDRESS, OUR_LINK, PEER_ADDRESS, PEER_LINK, SCRATCH, TOP, Service, Skipped, end_forwarder, need, require, start_forwarder,
                 start_recorder)

FAULTS = ("level", "loss", "twice", "milliseconds", "tempo")
FRAMES = 200
# Those of npm_sender.js: net 1, subnet 3.
NPM_UNIVERSES = [0x131, 0x132, 0x133]
# The recorder is exact to this: both it and tshark tell the kernel's own time stamps.
STAMP_LIMIT = 1_000
# What is promised of playback, at the median.
INTERVAL_LIMIT = 100_000
# Other programs of a busy machine only ever add lateness, so one playback of these must do.
PLAYBACKS = 3


def test_ola(rig):
    ola = Ola(rig, universes=[])

    def send():
        sender = ola.start_sender(rig)
        for frame in range(FRAMES):
            sender.write(",".join(str((frame * 7 + channel * (frame + 3)) % 256) for channel in range(512)))
            # The rhythm to be recorded, uneven on purpose.
            time.sleep(0.015 + frame * 11 % 30 / 1000)
        sender.process.stdin.close()
        sender.finish()

    test(rig, "OLA", send, [OUTPUT_UNIVERSE], ola.daemon)


def test_npm(rig):
    need("node", "nodejs")
    modules = SCRATCH / "node_modules"
    if not (modules / "dmxnet").is_dir():
        raise Skipped("the npm package dmxnet is missing")
    script = rig.directory / "npm_sender.js"
    # Beside its packages, where node looks for them.
    shutil.copy2(TOP / "tests" / "peers" / "npm_sender.js", script)

    def send():
        sender = rig.start([*rig.peer, "node", script, OUR_ADDRESS, FRAMES])
        sender.wait_for("sent")
        sender.finish()

    test(rig, "dmxnet", send, NPM_UNIVERSES)


def test(rig, name, send, universes, daemon=None):
    file = rig.directory / "foreign.rec"
    capture = Capture(rig, OUR_LINK)
    recorder = start_recorder(rig, file, "--interface", OUR_LINK)
    send()
    recorder.finish()
    foreign = frames_only(capture.finish())
    if daemon:
        daemon.end()
    summary = json.loads("\n".join(recorder.out))
    sent = collections.Counter(packet.universe for packet in foreign)
    require(sorted(sent) == universes, f"{name} sent universes {sorted(sent)} instead of {universes}")
    require(min(sent.values()) >= FRAMES, f"{name} sent {dict(sent)} packets, at least {FRAMES} of each universe were expected")
    require(summary["kernel_drops"] == 0, f"the kernel dropped {summary['kernel_drops']} packets")
    # The tempo is judged by playback alone.
    if rig.fault and rig.fault != "tempo":
        spoil(file, rig.fault)
    recorded = read(file)
    same_packets(foreign, recorded, f"the recording of {name}")
    errors = stamp_errors(recorded, foreign)
    moments = [recorded[place].time for place in firsts(recorded)]
    intervals = [after - before for before, after in zip(moments, moments[1:])]
    rig.say(f"{name}: {len(recorded)} packets recorded in {len(errors)} moments, intervals p50 {micro(rank(intervals, 50))}, p99 "
            f"{micro(rank(intervals, 99))}; their times are off tshark's by {micro(rank(errors, 50))} at the median, {micro(max(errors))} at most")
    require(max(errors) <= STAMP_LIMIT, f"times of the recording of {name} are off tshark's by up to {micro(max(errors))}")
    if rig.fault == "tempo":
        spoil(file, rig.fault)
    play_back(rig, name, file, recorded, foreign)


def play_back(rig, name, file, recorded, foreign):
    """Plays the recording and compares it with what the foreign sender had sent."""
    service = Service(rig)
    for number in range(1, PLAYBACKS + 1):
        service.add(number, file, [f"*:{PEER_ADDRESS}:6454"])
    service.start()
    forwarder = start_forwarder(rig)
    medians = []
    for number in range(1, PLAYBACKS + 1):
        # Takes the packets, so that nobody answers that the port is closed.
        sink = start_recorder(rig, rig.directory / f"back-{number}.rec", prefix=rig.peer)
        capture = Capture(rig, PEER_LINK, rig.peer)
        service.play(number)
        service.wait_for_end(number)
        sink.finish()
        played = frames_only(capture.finish())
        same_packets(foreign, played, f"the playback of {name}'s recording")
        errors = interval_errors(recorded, foreign, played)
        medians.append(rank(errors, 50))
        rig.say(f"playback {number}: intervals off those captured by {micro(medians[-1])} at the median, p99 {micro(rank(errors, 99))}, "
                f"at most {micro(max(errors))}")
        if medians[-1] <= INTERVAL_LIMIT:
            break
    end_forwarder(forwarder)
    require(min(medians) <= INTERVAL_LIMIT, f"intervals of the playback are off by {micro(min(medians))} at the median, in the best of {PLAYBACKS}")
