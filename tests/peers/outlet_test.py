"""What the forwarder's --keep-alive and --pace do, seen by tshark; and its counters, read by Prometheus's own parser."""

from compare import micro, rank
from capture import Capture, frames_only, require_well_formed
from recording import read
from rig import PEER_ADDRESS, PEER_LINK, Failed, Service, Skipped, end_forwarder, need, ours, require, run, start_forwarder, until

# Without --pace, without --keep-alive, and with counters that do not keep to the format.
FAULTS = ("unpaced", "silent", "format")
UNIVERSES = range(4)
PACE = 4_000_000  # nanoseconds
REPETITIONS = 2
# What is measured here besides the forwarder: a machine that lets it wait between taking the time and sending.
LATE_SHARE = 5  # percent
PREFIX = "cuewright_forwarder_"
DESTINATION = (("destination", f"{PEER_ADDRESS}:6454"), ("sent_to", f"{PEER_ADDRESS}:6454"))


def parser():
    try:
        from prometheus_client.parser import text_string_to_metric_families  # pylint: disable=import-outside-toplevel
    except ImportError:
        raise Skipped("prometheus_client is missing (package python3-prometheus-client)") from None
    return text_string_to_metric_families


def test(rig):
    need("tshark", "tshark")
    parse = parser()
    file, metrics = rig.directory / "1.rec", rig.directory / "forwarder.prom"
    run([ours("cuewright-recording"), "generate", "--pattern", "random", "--seed", 7, "--universes", f"{UNIVERSES[0]}-{UNIVERSES[-1]}", "--seconds", 3, file])
    frames = read(file)
    service = Service(rig)
    service.add(1, file, [f"*:{PEER_ADDRESS}:6454"])
    service.start()
    # Somebody who takes the packets, so that the peer refuses none.
    rig.start([*rig.peer, ours("cuewright-monitor"), "--json"]).wait_for("listening on")
    capture = Capture(rig, PEER_LINK, rig.peer)
    options = [*(["--pace", "4ms"] if rig.fault != "unpaced" else []), *(["--keep-alive"] if rig.fault != "silent" else [])]
    forwarder = start_forwarder(rig, "--metrics", metrics, *options)
    service.play(1)
    service.wait_for_end(1)
    last = {universe: [frame.levels for frame in frames if frame.universe == universe][-1] for universe in UNIVERSES}

    def repeated():
        looks = [(packet.universe, packet.levels) for packet in frames_only(capture.seen())]
        return all(looks.count(look) > REPETITIONS for look in last.items())

    until(f"{REPETITIONS} repetitions of each last look", repeated, 30)
    end_forwarder(forwarder)
    packets = capture.finish()
    require_well_formed(packets)
    seen = frames_only(packets)
    require(len(seen) == len(packets), "not only ArtDmx was sent")
    pace(rig, seen)
    repetitions = silence(rig, seen)
    fresh = in_order(frames, seen)
    counters(rig, parse, metrics, {"destination_packets_total": len(seen), "resent_packets_total": len(repetitions)}, len(frames) - fresh)


def pace(rig, seen):
    """No two packets closer than the pace."""
    gaps = [after.time - before.time for before, after in zip(seen, seen[1:])]
    close = sum(gap < 0.9 * PACE for gap in gaps)
    require(close * 100 <= len(gaps) * LATE_SHARE, f"{close} of {len(gaps)} packets come closer than 90 % of the pace after another")
    rig.say(f"pace {micro(PACE)}: gaps p1 {micro(rank(gaps, 1))}, p50 {micro(rank(gaps, 50))}; {close} of {len(gaps)} below 90 % of it")


def silence(rig, seen):
    """The times after which a look came again."""
    times = []
    for universe in UNIVERSES:
        own = [packet for packet in seen if packet.universe == universe]
        times += [after.time - before.time for before, after in zip(own, own[1:]) if before.levels == after.levels]
    require(times and min(times) >= 800_000_000 and rank(times, 50) <= 1_000_000_000,
            f"frames come again after {micro(min(times, default=0))} to {micro(max(times, default=0))}")
    rig.say(f"{len(times)} frames again after a silence of {micro(min(times))} to {micro(max(times))}")
    return times


def in_order(frames, seen):
    """How many looks came for the first time; they must be the recording's, in its order."""
    count = 0
    for universe in UNIVERSES:
        wanted = [frame.levels for frame in frames if frame.universe == universe]
        place, before = 0, None
        for packet in seen:
            if packet.universe != universe or packet.levels == before:
                continue
            require(packet.levels in wanted[place:], f"universe {universe} shows levels that the recording does not have there")
            place, before = wanted.index(packet.levels, place) + 1, packet.levels
            count += 1
        require(place == len(wanted), f"universe {universe} does not end with the recording's last look")
    return count


def counters(rig, parse, file, wanted, left_out):
    """The counters are in the format, and count what tshark has counted."""
    text = file.read_text(encoding="utf-8") + ("broken{\n" if rig.fault == "format" else "")
    try:
        families = list(parse(text))
    except ValueError as reason:
        raise Failed(f"Prometheus's parser refuses the counters: {reason}") from None
    values = {(sample.name.removeprefix(PREFIX), tuple(sorted(sample.labels.items()))): sample.value for family in families for sample in family.samples}
    require(all(family.type in ("counter", "gauge") and family.documentation for family in families), "a metric has no type or no explanation")
    for name, value in wanted.items():
        labels = DESTINATION if name.startswith("destination") else ()
        require(values.get((name, labels)) == value, f"{name} is {values.get((name, labels))}; tshark saw {value}")
    passed_over = values[("pace_superseded_packets_total", ())] + values[("pace_dropped_packets_total", ())]
    require(passed_over == left_out, f"{left_out} frames did not come, and {passed_over:g} are counted as passed over")
    rig.say(f"counters: {len(families)} metrics, {len(values)} samples, all of Prometheus's format; they count the packets, repetitions and "
            f"{left_out} frames passed over that tshark saw")
