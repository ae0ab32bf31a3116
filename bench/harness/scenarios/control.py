"""How long control calls take while 16 universes play, and how much of it is the wait for the due time."""

import random
import time

import numpy

from ..analysis import Frames, order_faults, quantiles
from ..programs import Receiver, Service
from ..show import Show

UNIVERSES = 16
FPS = 40
INTERVAL_NS = 25_000_000
RECORDED_FRAMES = 80
# Waits for the render worker per call of a loaded playlist.
WAITS = {"set_brightness": 1, "pause_playlist": 1, "play_playlist": 2, "stop_playlist": 2, "getLevel": 0}
MILLISECONDS = 1e-6


def measure(calls):
    show = Show()
    show.recording("steady.rec", UNIVERSES, RECORDED_FRAMES, sequence=1)
    show.recording("second.rec", 1, RECORDED_FRAMES, sequence=2)
    times = {name: [] for name in (*WAITS, "play_playlist, loading")}
    generator = random.Random(calls)
    with Receiver(int(calls * 5 * 80 * UNIVERSES)) as receiver:
        show.playlist(1, "steady.rec", receiver.port, loop=True, fps=FPS, ppf=UNIVERSES)
        show.playlist(2, "second.rec", receiver.port, loop=True, fps=FPS, ppf=1)
        with Service(show) as service:
            begin = time.monotonic()
            service.play(1)

            def timed(name, line):
                # At any moment of the frame, not always right after one.
                time.sleep(generator.uniform(0.005, 0.03))
                times[name].append(service.ask(line)[:2])

            for _ in range(calls):
                timed("play_playlist, loading", "call play_playlist 2")
                timed("set_brightness", "call set_brightness 1 100")
                timed("pause_playlist", "call pause_playlist 2")
                timed("play_playlist", "call play_playlist 2")
                timed("getLevel", "level")
                timed("stop_playlist", "call stop_playlist 2")
            service.stop()
            played = time.monotonic() - begin
        rows = receiver.rows()
    show.remove()
    steady = rows[rows["sequence"] == 1]
    ends = numpy.sort(numpy.concatenate([Frames(steady, UNIVERSES, INTERVAL_NS).last, rows["time"][rows["sequence"] == 2]]))
    # A call reaches the engine at most this long after it began: a call that waits for nothing is answered by then.
    delivery = int(numpy.quantile([end - begin for begin, end in times["getLevel"]], 0.99))
    # The second playlist goes on after a pause where it was, and begins anew after a stop.
    out = {"faults": order_faults(rows, RECORDED_FRAMES, UNIVERSES, 1, INTERVAL_NS, int(played * FPS) - 4)
                     + order_faults(rows, RECORDED_FRAMES, 1, 2, INTERVAL_NS, calls, restarts=True),
           "dropped": receiver.dropped}
    for name, waits in WAITS.items():
        begin, end = numpy.array(times[name]).T
        # The first send run that ends after the call has reached the engine is the one that it waits for, and so on.
        due = numpy.searchsorted(ends, begin + delivery) + waits - 1
        waited = ends[numpy.minimum(due, len(ends) - 1)] - begin if waits else numpy.zeros(len(begin))
        out[name] = [round(float(value), 4) for value in (end - begin) * MILLISECONDS]
        out[name + " wait"] = [round(float(value), 4) for value in waited * MILLISECONDS]
        for point, value in zip(("p50", "p99", "max"), quantiles((end - begin) * MILLISECONDS)):
            out[f"{name}_{point}_ms"] = value
    out["play_playlist, loading"] = [round((end - begin) * MILLISECONDS, 4) for begin, end in times["play_playlist, loading"]]
    return out


def run_scenario(bench):
    result = bench.result
    calls = bench.choose(60, 10)
    bench.rounds(("16 universes", lambda: measure(calls)))
    for name, waits in WAITS.items():
        took = numpy.concatenate(result.values("16 universes", name))
        waited = numpy.concatenate(result.values("16 universes", name + " wait"))
        p50, p99, most = quantiles(took)
        result.tell(f"control, {name}: round trip of {len(took)} calls in ms", p50=p50, p99=p99, max=most)
        if waits:
            result.tell(f"control, {name}: of it the wait for the due time, in ms", **dict(zip(("p50", "p99", "max"), quantiles(waited))))
            result.goal(f"control, {name}: p99 beyond {waits} wait{'s' if waits > 1 else ''} for a send run",
                        float(numpy.quantile(took - waited, 0.99)), 2.0, unit=" ms")
    loading = quantiles(numpy.concatenate(result.values("16 universes", "play_playlist, loading")))
    result.tell("control, play_playlist of a playlist that is not loaded, in ms", **dict(zip(("p50", "p99", "max"), loading)))
    result.goal("control: packets lost, repeated or out of order",
                sum(result.values("16 universes", "faults")) + sum(result.values("16 universes", "dropped")), 0)
