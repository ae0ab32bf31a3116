"""What the service takes with nothing playing, against a loop that sleeps 10 ms."""

import time

from .. import paths
from ..machine import memory_kib, thread_seconds
from ..programs import Program, Service
from ..show import Show

MILLISECONDS = 1e3


def measure(seconds):
    """Service and bare loop in the same seconds: both sleep nearly all the time."""
    show = Show()
    show.playlist(1, "none.rec")
    with Service(show) as service, Program([paths.tool("idle_loop")]) as loop:
        resident = memory_kib(service.pid, "VmRSS") / 1024
        time.sleep(1.0)
        before = thread_seconds(service.pid), thread_seconds(loop.pid), time.monotonic()
        time.sleep(seconds)
        after = thread_seconds(service.pid), thread_seconds(loop.pid), time.monotonic()
        minutes = (after[2] - before[2]) / 60
        out = {
            "cpu_seconds_per_minute": (after[0] - before[0]) / minutes,
            "bare_cpu_seconds_per_minute": (after[1] - before[1]) / minutes,
            "resident_mib": resident,
            "resident_after_idling_mib": memory_kib(service.pid, "VmRSS") / 1024,
            "exec_to_name_ms": service.start_seconds * MILLISECONDS,
        }
    show.remove()
    return out


def run_scenario(bench):
    result = bench.result
    seconds = bench.options.seconds or bench.choose(30.0, 2.0)
    bench.rounds(("idle", lambda: measure(seconds)))
    result.goal("idle: CPU, times the bare loop's",
                result.median("idle", "cpu_seconds_per_minute") / result.median("idle", "bare_cpu_seconds_per_minute"), 1.5)
    for figure in ("cpu_seconds_per_minute", "resident_mib", "resident_after_idling_mib", "exec_to_name_ms"):
        result.tell(f"idle: {figure.replace('_', ' ')}", median=result.median("idle", figure))
