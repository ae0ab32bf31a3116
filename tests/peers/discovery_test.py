"""OLA's daemon as a node that is found, fed and missed."""

import json
import re
import signal
import time

from capture import Capture, frames_only, require_well_formed
from compare import rank
from ola import UNIVERSES, Ola
from recording import read
from rig import OUR_LINK, PEER_ADDRESS, Service, end_forwarder, need, ours, require, run, start_forwarder, until

# `deaf`: it does not listen to one of the universes. `immortal`: it is not stopped.
FAULTS = ("deaf", "immortal")
SURVEY = "com.torvexserver.Netsurvey"
PATIENCE_WITH_IMMORTALS = 30
# A node is gone ten seconds after its last reply, which came three seconds before its end at most.
SOONEST_REMOVAL = 10 - 3
POLL = 0x2000
# Seconds from one poll to the next, with room for a machine that serves others first.
POLL_GAPS = (2.5, 3.1)


def test(rig):
    need("tshark", "tshark")
    service = Service(rig)
    file = rig.directory / "show.rec"
    run([ours("cuewright-recording"), "generate", "--pattern", "random", "--universes", f"{UNIVERSES[0]}-{UNIVERSES[-1]}", "--seconds", 3, file])
    service.add(1, file, [])
    service.add(2, file, [])
    signals = rig.start(["gdbus", "monitor", "--session", "--dest", SURVEY], env=service.environment)
    polls = Capture(rig, OUR_LINK)
    survey = rig.start([ours("cuewright-netsurvey"), "--interface", OUR_LINK, "--state", rig.directory / "nodes", "--verbose"],
                       env=service.environment)
    signals.wait_for("is owned by")
    service.start()
    forwarder = start_forwarder(rig)

    def listed():
        survey.alive()
        answer = run(["gdbus", "call", "--session", "--dest", SURVEY, "--object-path", "/", "--method", f"{SURVEY}.Dump.list_nodes"],
                     env=service.environment)
        return sorted(re.findall(r"1:(\d+):([\d.]+):(\d+)", answer))

    require(not listed(), f"nodes before there are any: {listed()}")
    began = time.monotonic()
    ola = Ola(rig, UNIVERSES[:-1] if rig.fault == "deaf" else UNIVERSES)
    node = sorted((str(universe), PEER_ADDRESS, "6454") for universe in UNIVERSES)
    until(f"OLA to be listed as {node}", lambda: set(node) <= set(listed()), 30)
    rig.say(f"OLA found {time.monotonic() - began:.1f} s after its start began")
    # While its ports are patched, OLA tells of universe 0 of its sub-net for those that are not yet. It has no bind indexes, so
    # that such a universe goes after the expiry time only.
    until(f"OLA to be listed as {node} and nothing else", lambda: listed() == node, 30)
    until("five polls", lambda: len(polls_among(polls.seen())) >= 5, 30)
    judge_polls(rig, polls_among(polls.finish()))
    rig.say(f"listed, after {time.monotonic() - began:.1f} s without what it told while its ports were patched: {table(service)}")

    play(rig, service, ola, read(file))

    stopped = time.monotonic()
    if rig.fault != "immortal":
        ola.daemon.finish(signal.SIGTERM, status=None)
    until("OLA to be removed", lambda: not listed(), PATIENCE_WITH_IMMORTALS)
    removed = time.monotonic() - stopped
    require(removed >= SOONEST_REMOVAL, f"OLA was removed {removed:.1f} s after its end, before three polls had gone unanswered")
    rig.say(f"removed {removed:.1f} s after its end")
    judge_signals(signals, node)

    # Nobody is left to send to.
    capture = Capture(rig, OUR_LINK)
    service.play(2)
    service.wait_for_end(2)
    end_forwarder(forwarder)
    require(not frames_only(capture.finish()), "frames go to a node that has gone")
    survey.finish(signal.SIGTERM)


def polls_among(packets):
    return [packet for packet in packets if packet.opcode == POLL and packet.source != PEER_ADDRESS]


def judge_polls(rig, packets):
    """They are broadcast, in their rhythm, and well formed for a foreign dissector."""
    require_well_formed(packets)
    require(all(packet.destination.endswith(".255") for packet in packets), f"polled: {sorted({packet.destination for packet in packets})}")
    times = [packet.time for packet in packets]
    gaps = [(later - earlier) * 1e-9 for earlier, later in zip(times, times[1:])]
    middle = rank(gaps, 50)
    require(POLL_GAPS[0] <= middle <= POLL_GAPS[1], f"{middle:.3f} s from poll to poll at the median")
    rig.say(f"{len(packets)} polls, {middle:.3f} s apart at the median")


def table(service):
    """The node as the list for people shows it."""
    nodes = json.loads(run([ours("cuewright-netsurvey"), "--list", "--json"], env=service.environment))
    require(len(nodes) >= 1 and all(node["address"] == PEER_ADDRESS and node["source"] == "reply" for node in nodes), f"listed: {nodes}")
    universes = sorted(universe for node in nodes for universe in node["universes"])
    require(universes == UNIVERSES, f"listed with universes {universes} instead of {UNIVERSES}")
    return ", ".join(f"\"{node['name']}\" with {node['universes']}" for node in nodes)


def play(rig, service, ola, frames):
    """Plays without destinations of its own, so to the nodes."""
    capture = Capture(rig, OUR_LINK)
    service.play(1)
    service.wait_for_end(1)
    for universe in UNIVERSES:
        last = [frame.levels for frame in frames if frame.universe == universe][-1]
        until(f"OLA to show the last look of universe {universe}", lambda one=universe, levels=last: ola.levels(one) == levels, 30)
    sent = [packet for packet in frames_only(capture.finish()) if packet.source != PEER_ADDRESS]
    require(all(packet.destination == PEER_ADDRESS for packet in sent), "frames went elsewhere, too")
    require(len(sent) == len(frames), f"{len(sent)} unicast frames instead of {len(frames)}")
    rig.say(f"{len(sent)} unicast frames, each once")


def judge_signals(signals, node):
    """What was announced in all: each record came once and went once, whatever was repeated for a service that begins."""
    present = []
    changes = 0
    until("the announcement of the removal", lambda: signals.said(f"0:{node[0][0]}:{PEER_ADDRESS}"))
    for line in list(signals.out):
        if "OnArtnetNodesUpdated" not in line:
            continue
        records = re.findall(r"([01]):(\d+):([\d.]+):(\d+)", line)
        for state, *record in records:
            changes += 1
            if state == "1":
                require(record not in present, f"{record} announced twice")
                present.append(record)
            elif record in present:
                present.remove(record)
            else:
                # For a service that begins: whatever it may have heard before, it has the record once then.
                require(("1", *record) in records, f"{record} taken back that was not there")
    require(not present, f"never taken back: {present}")
    require(changes >= 2 * len(node), f"{changes} changes announced instead of {2 * len(node)} at least")
