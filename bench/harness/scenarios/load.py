"""Speed and memory of loading, against the least work that loading can be, and the time to the first datagram."""

from .. import paths
from ..analysis import order_faults
from ..machine import memory_kib
from ..programs import Receiver, Service, run
from ..show import Show

PACKET = 530
UNIVERSES = 16
INTERVAL_NS = 25_000_000
# Sends nothing, so that the measured time is the loading alone.
MUTED = {universe: -2 for universe in range(UNIVERSES)}
KIB = 1024
# By how many bytes the service has its loader's heap grow at a time.
HEAP_STEP = 96 * KIB


def bare(recording, *step):
    seconds, packets, before, after, _cpu = run([paths.tool("load_loop"), recording, *step]).split()
    stored = int(packets) * PACKET
    return {
        "mb_per_second": recording.stat().st_size / float(seconds) / 1e6,
        "resident_per_stored_byte": (int(after) - int(before)) * KIB / stored,
    }


def service(show, recording, packets):
    """Without delays a recording is ready only when all of it is loaded, and that is when play_playlist answers."""
    with Service(show) as program:
        before = memory_kib(program.pid, "VmRSS")
        begin, end = program.play(1)
        after = memory_kib(program.pid, "VmRSS")
        program.ask("call stop_playlist 1")
        left = memory_kib(program.pid, "VmRSS")
    stored = packets * PACKET
    if (after - before) * KIB < stored:
        raise RuntimeError("not all of the recording was loaded")
    return {
        "mb_per_second": recording.stat().st_size / (end - begin) * 1e3,
        "resident_per_stored_byte": (after - before) * KIB / stored,
        "kept_after_stop_mib": (left - before) / KIB,
    }


def ten_loads(show):
    with Service(show) as program:
        peaks = []
        for _ in range(10):
            program.play(1)
            peaks.append(memory_kib(program.pid, "VmHWM"))
            program.ask("call stop_playlist 1")
        return {"first_peak_mib": peaks[0] / KIB, "last_peak_over_first": peaks[-1] / peaks[0],
                "kept_mib": memory_kib(program.pid, "VmRSS") / KIB}


def first_datagram(megabytes, loads=4):
    """
    From the call to the first datagram, a few loads in one service, the first of which is told apart: it measures how
    fast the host supplies pages after a pause. The frames until the stop must be in order; they go on until the load is
    over, several times as long as it takes at the speed of copying.
    """
    frames = max(megabytes * 1_000_000 // (UNIVERSES * PACKET), 10)
    show = Show("first")
    show.recording("show.rec", UNIVERSES, frames, INTERVAL_NS)
    times, faults, dropped = [], 0, 0
    heard = min(5 + megabytes // 10, frames // 2)
    port = None
    for _ in range(loads):
        with Receiver(400_000, port) as receiver:
            if port is None:
                port = receiver.port
                show.playlist(1, "show.rec", port)
                program = Service(show)
            begin, _ = program.play(1)
            receiver.wait_for(heard * UNIVERSES)
            program.ask("call stop_playlist 1")
            rows = receiver.rows()
            times.append((int(rows["time"][0]) - begin) * 1e-6)
            faults += order_faults(rows, frames, UNIVERSES, 1, INTERVAL_NS, heard)
            dropped += receiver.dropped
    program.__exit__()
    show.remove()
    after_pause, *times = times
    return {"first_datagram_ms": sorted(times)[len(times) // 2], "slowest_ms": max(times), "after_pause_ms": after_pause,
            "faults": faults + dropped}


def run_scenario(bench):
    result = bench.result
    packets = bench.choose(200_000_000, 20_000_000) // PACKET // UNIVERSES * UNIVERSES
    show = Show()
    show.recording("load.rec", UNIVERSES, packets // UNIVERSES)
    show.playlist(1, "load.rec", 6454, zones=MUTED)
    recording = show.root / "load.rec"

    def behind_another(measure):
        """The first load after a pause measures how fast the host supplies pages; it is thrown away."""
        bare(recording)
        return measure()

    bench.rounds(("least work", lambda: behind_another(lambda: bare(recording))),
                 ("least work, heap in steps", lambda: behind_another(lambda: bare(recording, HEAP_STEP))),
                 ("load", lambda: behind_another(lambda: service(show, recording, packets))))
    bench.rounds(("ten loads", lambda: ten_loads(show)))
    show.remove()
    sizes = bench.choose((1, 100, 1000), (1, 20))
    bench.rounds(*((f"first datagram, {size} MB", lambda s=size: first_datagram(s)) for size in sizes))

    ratio = result.median("load", "mb_per_second") / result.median("least work", "mb_per_second")
    result.goal("load: speed, part of the least work", ratio, 0.90, at_least=True)
    result.goal("load: speed, part of the least work, aim", ratio, 1.0, at_least=True)
    result.tell("load: speed, part of the least work with a heap that grows in steps, as the service's",
                ratio=result.median("load", "mb_per_second") / result.median("least work, heap in steps", "mb_per_second"))
    result.goal("load: resident bytes per stored byte", result.median("load", "resident_per_stored_byte"), 1.12)
    result.goal("load: kept after the stop", result.median("load", "kept_after_stop_mib"), 8.0, unit=" MiB")
    result.goal("load: peak of ten loads over the first", max(result.values("ten loads", "last_peak_over_first")), 1.01)
    slowest = {size: max(result.values(f"first datagram, {size} MB", "slowest_ms")) for size in sizes}
    medians = {size: result.median(f"first datagram, {size} MB", "first_datagram_ms") for size in sizes}
    for size in sizes:
        result.goal(f"load: first datagram of {size} MB, slowest", slowest[size], 20.0, unit=" ms")
    result.tell("load: first datagram of the first load after a pause, slowest in ms",
                **{f"{size} MB": max(result.values(f"first datagram, {size} MB", "after_pause_ms")) for size in sizes})
    result.tell("load: first datagram, medians in ms", **{f"{size} MB": value for size, value in medians.items()})
    result.goal("load: first datagram, median of the largest later than that of the smallest",
                max(medians[sizes[-1]] - medians[sizes[0]], 0.0), 5.0, unit=" ms")
    faults = sum(sum(result.values(f"first datagram, {size} MB", "faults")) for size in sizes)
    result.goal("load: packets lost, repeated or out of order while loading", faults, 0)
