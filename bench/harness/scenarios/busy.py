"""How even frames are while every other core has work to do: few frames are late then, but by milliseconds."""

import contextlib
import os

import numpy

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
        result.goal(f"busy, {universes} universes: p99 interval deviation, times the bare loop's",
                    result.median(ours, "deviation_p99_us") / result.median(reference, "deviation_p99_us"), 2.0)
        for name in (reference, ours):
            rounds = [numpy.array(entry) for entry in result.values(name, "first_us")]
            late = numpy.concatenate(rounds)
            uneven = numpy.concatenate([numpy.abs(numpy.diff(entry)) for entry in rounds])
            result.tell(f"busy, {name}: of {len(late)} frames in all rounds", later_than_100_us=int(numpy.sum(late > 100)),
                        later_than_1_ms=int(numpy.sum(late > 1000)), latest_us=float(late.max()),
                        first_packets_interval_p99_us=float(numpy.quantile(uneven, 0.99)),
                        worst_drift_ppm=max(abs(value) for value in result.values(name, "drift_ppm")))
    judge_losses(bench)
