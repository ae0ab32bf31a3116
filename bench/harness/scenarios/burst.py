"""Packets per second with nothing to wait for, against a bare loop of sendto()."""

import time

import numpy

from .. import paths
from ..analysis import rate
from ..machine import supply_pages
from ..programs import Receiver, Service, run_measured
from ..show import Show

UNIVERSES = 16
# Frames a second that nobody can send: each is overdue, so the service never waits.
OVERDUE_FPS = 2_000_000 // UNIVERSES
SETTLE_SECONDS = 0.3


def bare(packets):
    with Receiver(packets) as receiver:
        supply_pages()
        cpu = run_measured([paths.tool("sendto_loop"), receiver.port, packets])
        rows = receiver.rows()
        return {"packets_per_second": rate(rows, receiver.dropped), "cpu_ns_per_packet": cpu / packets * 1e9,
                "dropped": receiver.dropped}


def plain(packets):
    """A show without zones at full brightness, all of it one frame."""
    show = Show()
    with Receiver(packets) as receiver:
        show.recording("burst.rec", UNIVERSES, packets // UNIVERSES)
        show.playlist(1, "burst.rec", receiver.port)
        with Service(show) as service:
            supply_pages()
            cpu = service.worker_seconds()
            service.play(1)
            receiver.wait_for(packets)
            cpu = service.worker_seconds() - cpu
        rows = receiver.rows()
    show.remove()
    if receiver.received + receiver.dropped != packets:
        raise RuntimeError(f"{receiver.received} received and {receiver.dropped} dropped of {packets} packets")
    return {"packets_per_second": rate(rows, receiver.dropped), "cpu_ns_per_packet": cpu / packets * 1e9,
            "dropped": receiver.dropped}


def overdue(receiver, show, playlists, seconds, prepare=lambda service: None, settle=SETTLE_SECONDS):
    """
    Plays looping playlists that are always overdue and gives the rows of `seconds`, once all take part, the worker's
    CPU seconds meanwhile, and the number dropped in the whole run.
    """
    with Service(show) as service:
        prepare(service)
        supply_pages()
        for number in playlists:
            service.play(number)
            service.ask(f"call pause_playlist {number}")
        # From the pause they start almost at once, so that their due times lie close and they take turns.
        for number in playlists:
            service.play(number)
        time.sleep(settle)
        begin, cpu = time.monotonic_ns(), service.worker_seconds()
        time.sleep(seconds)
        end, cpu = time.monotonic_ns(), service.worker_seconds() - cpu
        service.stop()
    rows = receiver.rows()
    window = rows[(rows["time"] >= begin) & (rows["time"] <= end)]
    if len(window) < 2:
        raise RuntimeError(f"nothing to measure: {len(window)} of {len(rows)} rows in the window, {receiver.received} received, "
                           f"{receiver.dropped} dropped, clock step {receiver.clock_step} ns")
    # Every frame but the first of a recording has its number in the first channels.
    if numpy.count_nonzero(window["serial"]) < 0.9 * len(window):
        raise RuntimeError("the packets are dark: their channels were not written")
    return window, cpu, receiver.dropped


def merged(packets):
    """Brightness 50, two playlists that take turns in overlapping zones of 512 channels."""
    show = Show()
    seconds = packets / 400_000
    with Receiver(int(1_500_000 * (SETTLE_SECONDS + seconds + 1))) as receiver:
        for number in (1, 2):
            show.recording(f"{number}.rec", UNIVERSES, packets // UNIVERSES // 2, sequence=number)
            zones = {universe: number for universe in range(UNIVERSES)}
            show.playlist(number, f"{number}.rec", receiver.port, loop=True, brightness=50, zones=zones,
                          fps=OVERDUE_FPS, ppf=UNIVERSES)
        rows, cpu, dropped = overdue(receiver, show, (1, 2), seconds, lambda service: service.zones(2, 512))
    show.remove()
    share = float((rows["sequence"] == 1).mean())
    return {"packets_per_second": rate(rows, 0), "cpu_ns_per_packet": cpu / len(rows) * 1e9, "dropped": dropped,
            "share_of_first": share}


def run_scenario(bench):
    packets = bench.choose(400_000, 40_000)
    bench.rounds(
        ("bare sendto", lambda: bare(packets)),
        ("brightness 100, no zone", lambda: plain(packets)),
        ("brightness 50, zones, two playlists", lambda: merged(packets)),
    )
    result = bench.result
    for case, least, aim in (("brightness 100, no zone", 0.85, 0.92), ("brightness 50, zones, two playlists", 0.75, 0.85)):
        ratio = result.median(case, "packets_per_second") / result.median("bare sendto", "packets_per_second")
        result.goal(f"burst, {case}: part of bare sendto", ratio, least, at_least=True)
        result.goal(f"burst, {case}: part of bare sendto, aim", ratio, aim, at_least=True)
        result.tell(f"burst, {case}: CPU time of bare sendto over its own",
                    ratio=result.median("bare sendto", "cpu_ns_per_packet") / result.median(case, "cpu_ns_per_packet"))
    result.goal("burst, two playlists: share of the one that sends less",
                min(min(share, 1 - share) for share in result.values("brightness 50, zones, two playlists", "share_of_first")), 0.45,
                at_least=True)
