"""How even frames are while every other core has work to do: few frames are late then, but by milliseconds."""

import contextlib
import os

from ..programs import Program
from .pacing import bare, judge_losses, service


def with_other_cores_busy(measure):
    """
    Measures while something keeps every core busy but the last.

    Were these free to choose, each run would leave the player another core, and whoever got the one on which the machine's
    other programs wake up was late by milliseconds, service or bare loop.
    """
    cores = sorted(os.sched_getaffinity(0))
    with contextlib.ExitStack() as stack:
        for core in cores[:-1] or cores:
            stack.enter_context(Program(["taskset", "-c", core, "sh", "-c", "while :; do :; done"]))
        return measure()


def run_scenario(bench):
    # A p99 of 20 s hangs on eight frames: from round to round it has been seen to vary twentyfold.
    seconds = bench.options.seconds or bench.choose(60.0, 2.0)
    result = bench.result
    counts = bench.choose((10, 16), (10,))
    for universes in counts:
        bench.rounds(
            (f"{universes} universes, bare loop", lambda u=universes: with_other_cores_busy(lambda: bare(u, seconds))),
            (f"{universes} universes", lambda u=universes: with_other_cores_busy(lambda: service(u, seconds))),
        )
    for universes in counts:
        ours, reference = f"{universes} universes", f"{universes} universes, bare loop"
        result.goal(f"pacing, {universes} universes, other core busy: p99 interval deviation, times the bare loop's",
                    result.median(ours, "deviation_p99_us") / result.median(reference, "deviation_p99_us"), 2.0)
        for name in (reference, ours):
            late = sum(1 for entry in result.values(name, "first_us") for value in entry if value > 100)
            result.tell(f"busy, {name}: frames more than 100 µs late", frames=late, of=sum(result.values(name, "frames")),
                        latest_us=max(result.values(name, "first_max_us")))
    judge_losses(bench)
