"""How late frames are at 40 frames a second, against a loop that yields until the same deadlines."""

import time

import numpy

from .. import paths
from ..analysis import Frames, order_faults, quantiles
from ..machine import thread_seconds
from ..programs import Receiver, Service, run_measured
from ..show import Show

INTERVAL_NS = 25_000_000
FPS = 40
# The recording is short and loops, so that loading it is over before the second frame.
RECORDED_FRAMES = 80
PLAYLISTS = 8
MICROSECONDS = 1e-3
# What a player sends before it is not measured. By then all recordings are loaded; loaders that share the cores with the
# worker make first frames late, and the first frame of anybody finds its memory and code cold.
SETTLE_SECONDS = 1.0
# Frames of all rounds from which on a p99.9 says anything.
LEAST_FOR_P999 = 10_000


def figures(parts, cpu_seconds, seconds, **more):
    """Figures over the Frames of one run, one for each playlist."""
    joined = {name: numpy.concatenate([getattr(part, name) for part in parts])
              for name in ("first_lateness", "last_lateness", "span", "deviations")}
    out = {"frames": len(joined["first_lateness"])}
    for name, label in (("deviations", "deviation"), ("first_lateness", "first"), ("last_lateness", "last"), ("span", "span")):
        for point, value in zip(("p50", "p99", "max"), quantiles(joined[name] * MICROSECONDS)):
            out[f"{label}_{point}_us"] = value
    out["drift_ppm"] = max((part.drift_ppm() for part in parts), key=abs)
    out["cpu_per_second"] = cpu_seconds / seconds
    for packet in ("first", "last"):
        out[f"{packet}_us"] = [round(float(value) * MICROSECONDS, 2) for value in joined[f"{packet}_lateness"]]
    return {**out, **more}


def bare(universes, seconds, offsets=(0,)):
    """Figures of the bare loop; each of `offsets`, in nanoseconds behind the grid, is a playlist of its own."""
    frames = int((seconds + SETTLE_SECONDS) * FPS)
    with Receiver(universes * frames * len(offsets)) as receiver:
        begin = time.monotonic()
        cpu = run_measured([paths.tool("pacing_loop"), receiver.port, universes, INTERVAL_NS, frames, *offsets])
        wall = time.monotonic() - begin
        rows = receiver.rows()
    parts = [Frames(once_settled(rows[rows["sequence"] == number]), universes, INTERVAL_NS) for number in range(1, len(offsets) + 1)]
    return figures(parts, cpu, wall, dropped=receiver.dropped, clock_step_ns=receiver.clock_step)


def from_frame_at(rows, moment):
    """The rows of one playlist from the first frame on that begins at `moment` or later."""
    begins = numpy.flatnonzero((rows["universe"] == 0) & (rows["time"] >= moment))
    return rows[begins[0]:] if len(begins) else rows[:0]


def once_settled(rows):
    """The rows of a player that loads nothing, but for those of its beginning."""
    return from_frame_at(rows, rows["time"][0] + int(SETTLE_SECONDS * 1e9)) if len(rows) else rows


def latest_before(frames, moment):
    """The latest first packet, against the grid of all frames, of those that were sent before `moment`."""
    early = frames.first_lateness[frames.first < moment]
    return float(numpy.max(early)) if len(early) else 0.0


class Pair:
    """
    The service with one or several playlists, and a bare loop that sends as many packets at the same times of a frame.

    When within 25 ms a playlist is due follows from when it was started. The bare loop takes these offsets from the last
    run of the service, so that the service has to run first.
    """

    def __init__(self, universes, seconds, playlists=PLAYLISTS):
        self.universes, self.seconds, self.playlists = universes, seconds, playlists
        self.offsets = None

    def ours(self):
        figures_of_run = service(self.universes, self.seconds, self.playlists)
        self.offsets = figures_of_run["offsets_ns"]
        return figures_of_run

    def bare(self):
        return bare(self.universes, self.seconds, self.offsets)


def offsets_of(parts):
    """How far behind the earliest of them, within an interval, playlists are due: nanoseconds, ascending, from 0 on."""
    phases = sorted(part.origin % INTERVAL_NS for part in parts)
    return [phase - phases[0] for phase in phases]


def service(universes, seconds, playlists=1):
    """Figures from the moment on at which everything is loaded, and the latest first packet before it."""
    show = Show()
    with Receiver(int(universes * playlists * FPS * (seconds + SETTLE_SECONDS + 5))) as receiver:
        for number in range(1, playlists + 1):
            show.recording(f"{number}.rec", universes, RECORDED_FRAMES, sequence=number)
            zones = {universe: number for universe in range(universes)} if playlists > 1 else None
            show.playlist(number, f"{number}.rec", receiver.port, loop=True, zones=zones, fps=FPS, ppf=universes)
        with Service(show) as program:
            if playlists > 1:
                program.zones(playlists, 512)
            for number in range(1, playlists + 1):
                program.play(number)
            time.sleep(SETTLE_SECONDS)
            settled = time.monotonic_ns()
            cpu, begin = thread_seconds(program.pid), time.monotonic()
            time.sleep(seconds)
            cpu, wall = thread_seconds(program.pid) - cpu, time.monotonic() - begin
            program.stop()
        rows = receiver.rows()
    show.remove()
    numbers = range(1, playlists + 1)
    played = [rows[rows["sequence"] == number] for number in numbers]
    parts = [Frames(from_frame_at(own, settled), universes, INTERVAL_NS) for own in played]
    whole = [Frames(own, universes, INTERVAL_NS) for own in played]
    loading = max(latest_before(own, settled) for own in whole)
    # A service that falls silent half-way must not look like one that is in time.
    least = int((seconds + SETTLE_SECONDS) * FPS) - 2
    return figures(parts, cpu, wall, dropped=receiver.dropped, clock_step_ns=receiver.clock_step,
                   while_loading_latest=loading * MICROSECONDS, offsets_ns=offsets_of(whole),
                   faults=sum(order_faults(rows, RECORDED_FRAMES, universes, number, INTERVAL_NS, least) for number in numbers))


def judge_against(result, ours_named, bare_named, label, universes):
    """States how much later than the bare loop the service is, in the figures that have a limit."""
    if universes in (10, 16):
        result.goal(f"pacing, {label}: p99 interval deviation, times the bare loop's",
                    result.median(ours_named, "deviation_p99_us") / result.median(bare_named, "deviation_p99_us"), 1.5)
    for point, limit in (("p50", 3.0), ("p99", 10.0)):
        result.goal(f"pacing, {label}: lateness of the first packet beyond the bare loop's, {point}",
                    result.median(ours_named, f"first_{point}_us") - result.median(bare_named, f"first_{point}_us"), limit, unit=" µs")
    if universes in (10, 256):
        result.goal(f"pacing, {label}: first to last packet, p50, times the bare loop's",
                    result.median(ours_named, "span_p50_us") / result.median(bare_named, "span_p50_us"), 1.4 if universes == 10 else 1.2)


def judge(bench, counts):
    result = bench.result
    for universes in counts:
        case, reference = f"{universes} universes", f"{universes} universes, bare loop"
        merged = f"{universes} universes, {PLAYLISTS} playlists"
        judge_against(result, case, reference, case, universes)
        judge_against(result, merged, f"{merged}, bare loop", merged, universes)
        for name in (reference, case, merged, f"{merged}, bare loop"):
            frames = sum(result.values(name, "frames"))
            told = {f"{packet} {point}": result.median(name, f"{packet}_{point}_us")
                    for packet in ("first", "last") for point in ("p50", "p99", "max")}
            told["interval p99"] = result.median(name, "deviation_p99_us")
            if frames >= LEAST_FOR_P999:
                for packet in ("first", "last"):
                    told[f"{packet} p99.9 of all rounds"] = float(numpy.quantile(numpy.concatenate(result.values(name, f"{packet}_us")), 0.999))
            told["CPU seconds a second"] = result.median(name, "cpu_per_second")
            result.tell(f"pacing, {name}, {frames} frames: µs late", **told)


def judge_drift(bench, long_runs):
    """The slope over all frames of each long run; the worst round counts."""
    for case in long_runs:
        drift = max((abs(value) for value in bench.result.values(case, "drift_ppm")), default=float("nan"))
        if "bare" in case:
            bench.result.tell(f"drift, {case}, worst round", ppm=drift)
        else:
            bench.result.goal(f"drift, {case}, worst round", drift, 0.5, unit=" ppm")


def judge_losses(bench):
    result = bench.result
    faults = sum(one.get("faults", 0) + one["dropped"] for entry in result.data["cases"].values() for one in entry["rounds"])
    result.goal(f"{result.data['scenario']}: packets lost, repeated or out of order", faults, 0)


def run_scenario(bench):
    seconds = bench.options.seconds or bench.choose(20.0, 2.0)
    # The slope of the lateness needs a minute; with 16 universes all cases are measured that long.
    drift_seconds = bench.options.seconds or bench.choose(60.0, 2.0)
    counts = bench.choose((1, 10, 16, 64, 256), (1, 16))
    long_runs = []
    for universes in counts:
        long = drift_seconds if universes == 16 else seconds
        ours = drift_seconds if universes in (16, 256) else seconds
        names = {"bare": f"{universes} universes, bare loop", "ours": f"{universes} universes",
                 "merged": f"{universes} universes, {PLAYLISTS} playlists",
                 "merged bare": f"{universes} universes, {PLAYLISTS} playlists, bare loop"}
        merged = Pair(universes, long)
        bench.rounds(
            (names["bare"], lambda u=universes, s=ours: bare(u, s)),
            (names["ours"], lambda u=universes, s=ours: service(u, s)),
            (names["merged"], merged.ours),
            (names["merged bare"], merged.bare),
        )
        long_runs += [names[key] for key in names if universes == 16 or (universes == 256 and key in ("bare", "ours"))]
    judge(bench, counts)
    judge_drift(bench, long_runs)
    judge_losses(bench)
