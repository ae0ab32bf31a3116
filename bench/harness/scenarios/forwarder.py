"""What the forwarder takes, loses and delays, against one thread that receives and sends batches."""

import subprocess

from .. import paths
from ..analysis import quantiles
from ..machine import thread_seconds
from ..programs import Program, free_port, run

WINDOW = 1024
MICROSECONDS = 1e-3


class Running:
    """Our forwarder or the bare loop, listening."""

    def __init__(self, ours):
        self.port, self.out = free_port(), free_port()
        words = [paths.FORWARDER, "--port", self.port] if ours else [paths.tool("forward_loop"), self.port, self.out]
        self._program = Program(words, stderr=subprocess.STDOUT)
        self._program.read()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._program.end()

    def probe(self, *words):
        return run([paths.tool("forward_probe"), self.port, self.out, *words])

    def cpu_seconds(self):
        return thread_seconds(self._program.pid)


def answered(lines, count):
    """The probe's latencies in microseconds; every datagram must have come."""
    times = [int(line) * MICROSECONDS for line in lines.split()]
    if len(times) != count:
        raise RuntimeError(f"{count - len(times)} of {count} single datagrams were lost")
    return times


def measure(ours, count, bursts, latencies):
    with Running(ours) as forwarder:
        cpu = forwarder.cpu_seconds()
        seconds, lost = forwarder.probe("flood", count, WINDOW).split()
        cpu = forwarder.cpu_seconds() - cpu
        out = {"packets_per_second": (count - int(lost)) / float(seconds), "flood_lost": int(lost), "cpu_ns_per_packet": cpu / count * 1e9}
        for size in bursts:
            out[f"lost_of_{size}"] = int(forwarder.probe("burst", size))
        times = answered(forwarder.probe("latency", latencies), latencies)
        out["latency_p50_us"], out["latency_p99_us"] = quantiles(times, (0.5, 0.99))
        return out


def direct(latencies):
    """The probe sends to itself: what of the latency is the probe's and the kernel's."""
    port = free_port()
    times = answered(run([paths.tool("forward_probe"), port, port, "latency", latencies]), latencies)
    p50, p99 = quantiles(times, (0.5, 0.99))
    return {"latency_p50_us": p50, "latency_p99_us": p99}


def run_scenario(bench):
    result = bench.result
    count = bench.choose(400_000, 20_000)
    latencies = bench.choose(1000, 100)
    bursts = (100, 1000, 2000, 5000)
    bench.rounds(
        ("bare loop", lambda: measure(False, count, bursts, latencies)),
        ("forwarder", lambda: measure(True, count, bursts, latencies)),
        ("nobody between", lambda: direct(latencies)),
    )
    ratio = result.median("forwarder", "packets_per_second") / result.median("bare loop", "packets_per_second")
    result.goal("forwarder: packets per second, part of the bare loop's", ratio, 0.8, at_least=True)
    result.goal("forwarder: lost of a burst of 2,000, worst round", max(result.values("forwarder", "lost_of_2000")), 0)
    result.tell("forwarder: lost at full speed, worst round", ours=max(result.values("forwarder", "flood_lost")),
                bare=max(result.values("bare loop", "flood_lost")))
    for size in bursts:
        result.tell(f"forwarder: lost of a burst of {size}, worst round", ours=max(result.values("forwarder", f"lost_of_{size}")),
                    bare=max(result.values("bare loop", f"lost_of_{size}")))
    for point in ("p50", "p99"):
        added = {case: result.median(case, f"latency_{point}_us") - result.median("nobody between", f"latency_{point}_us")
                 for case in ("forwarder", "bare loop")}
        result.tell(f"forwarder: added latency, {point}, in µs", ours=added["forwarder"], bare=added["bare loop"])
