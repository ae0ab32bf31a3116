"""One run from the start of the programs to the figures that are judged."""

import os
import random
import time

from harness import machine
from harness.programs import Program

from .driver import WILD, Driver
from .faults import FAULTS
from .ledger import Ledger
from .plan import INTERVAL_NS, MERGED, NODES, Plan
from .rig import Rig, udp_counters
from .samples import Samples
from .screen import Screen

REST_SECONDS = 8.0
LONGEST_WARM_UP = 120.0
CATCH_UP_SECONDS = 30.0
SETTLED_SECONDS = 0.5
# Frames to changing destinations may overtake each other in the forwarder's batches; no more than these.
NODE_SLACK = 8


class Casualty(Exception):
    """A program has ended too early; says which."""


class Run:
    def __init__(self, options, port, private_network):
        self._options = options
        self._private = private_network
        self._seconds = options.minutes * 60.0
        self.plan = Plan(options.universes, port)
        self.ledger = Ledger(self.plan.references, {number: NODE_SLACK if number == NODES else 0 for number in WILD}, MERGED)
        self.rig = None
        self.samples = {}
        self._driver = None
        self._casualty = None
        self._planted = options.fault is None

    def play(self):
        """Plays the whole run; its figures."""
        self._screen = Screen(self._seconds)
        udp_before = udp_counters()
        self.rig = Rig(self.plan, self.ledger)
        self._driver = Driver(self.rig.service, self.ledger, self.plan, random.Random(self._options.seed), self._private)
        self._begin = time.monotonic()
        self._noise = machine.Noise(Program.live_pids)
        due_before = None
        try:
            self._driver.begin()
            warm_up = min(LONGEST_WARM_UP, self._seconds / 4)
            self.samples = {"cuewright": Samples(self.rig.service.pid, warm_up),
                            "cuewright-forwarder": Samples(self.rig.forwarder.pid, warm_up)}
            while self._passed() < self._seconds:
                self._driver.perform(min(time.monotonic() + REST_SECONDS, self._begin + self._seconds), self._between)
                self._driver.rest()
                for samples in self.samples.values():
                    samples.take()
            due_before = self._catch_up()
        except (RuntimeError, OSError, Casualty) as reason:
            self._casualty = self._find_casualty(reason)
        return self._finish(due_before, udp_before)

    def _passed(self):
        return time.monotonic() - self._begin

    def _between(self):
        """After each call: looks that all are alive, plants what is to be planted, shows progress."""
        if not self._planted and self._passed() > self._seconds / 2:
            self._planted = True
            FAULTS[self._options.fault](self)
        casualty = self.rig.casualty()
        if casualty is not None:
            raise Casualty(casualty)
        self._show_progress()

    def _find_casualty(self, reason):
        """A client whose service is gone ends, too, so the service is looked for first, for a moment."""
        deadline = time.monotonic() + 2.0
        while (casualty := self.rig.casualty()) is None and time.monotonic() < deadline:
            time.sleep(0.01)
        return casualty or str(reason)

    def _catch_up(self):
        """Frames due now, by playlist, once all of them have arrived, or have not for too long."""
        now = time.monotonic_ns()
        with self.ledger.lock:
            due = [reference.due(now) for reference in self.plan.references]
        deadline = time.monotonic() + CATCH_UP_SECONDS
        while time.monotonic() < deadline:
            with self.ledger.lock:
                if all(reference.frames >= frames for reference, frames in zip(self.plan.references, due)):
                    break
            time.sleep(0.002)
        return due

    def _finish(self, due_before, udp_before):
        due_time = time.monotonic_ns()
        if self._casualty is None:
            try:
                _, due_time = self._driver.end()
            except (RuntimeError, OSError) as reason:
                self._casualty = self._find_casualty(reason)
        self._settle()
        noise = self._noise.end()
        service_status = self.rig.service.program.process.poll()
        counters, forwarder_status = self.rig.forwarder.finish()
        far_side = self.rig.far_side.finish()
        self.rig.service.__exit__()
        if self._casualty is None and (service_status is not None or forwarder_status != 0 or far_side is None):
            self._casualty = f"ended with status {service_status}, forwarder {forwarder_status}"
        udp = {name: value - udp_before[name] for name, value in udp_counters().items()}
        self._screen.close()
        return self._figures(due_before, due_time, counters, far_side, udp, noise)

    def _settle(self):
        """Waits until nothing more arrives."""
        seen, since = -1, time.monotonic()
        deadline = since + CATCH_UP_SECONDS
        while time.monotonic() - since < SETTLED_SECONDS and time.monotonic() < deadline:
            with self.ledger.lock:
                received = self.ledger.received
            if received != seen:
                seen, since = received, time.monotonic()
            time.sleep(0.01)

    def _figures(self, due_before, due_time, counters, far_side, udp, noise):
        received, dropped = far_side or (self.ledger.received, 0)
        sent = sum(destination["packets"] for destination in counters["destinations"]) if counters else 0
        calls = self._driver.calls
        milliseconds, method = calls.longest
        return {
            "seconds": self._passed(), "seed": self._options.seed, "universes": self._options.universes,
            "private_network": self._private, "casualty": self._casualty,
            "references": [self._reference(number, due_before, due_time) for number in range(len(self.plan.references))],
            "books": {
                "followed": self.ledger.followed("received"), "faults": self.ledger.followed("faults"),
                "merged": self.ledger.merged, "stale": self.ledger.stale, "strangers": self.ledger.strangers,
                "received": received, "far_side_drops": dropped, "forwarder": counters,
                "service_sent": udp["OutDatagrams"] - sent if self._private and counters else None,
                "kernel_losses": udp["InErrors"] + udp["NoPorts"] + udp["SndbufErrors"] if self._private else None,
            },
            "playlists": self.ledger.summary(),
            "resources": {name: samples.figures() for name, samples in self.samples.items()},
            "samples": {name: samples.all for name, samples in self.samples.items()},
            "calls": {"count": calls.count, "wrong": calls.wrong, "longest_ms": milliseconds, "longest": method, "methods": calls.table()},
            "noise": noise, "load": os.getloadavg(), "machine": machine.describe(),
        }

    def _reference(self, number, due_before, due_time):
        reference = self.plan.references[number]
        lateness = reference.lateness
        after = reference.due(due_time)
        return {
            "name": f"playlist {reference.playlist}", "universes": len(reference.tracks),
            "due_before": after if due_before is None else due_before[number], "due_after": after, "frames": reference.frames,
            **{figure: reference.total(figure) for figure in ("received", "lost", "repeated", "disordered")},
            "drift_ns": lateness.drift, "last_ns": lateness.last_lateness, "jitter_ns": lateness.jitter,
            "gap_ns": reference.longest_gap,
            "frame_ns": INTERVAL_NS, "late_p50_us": lateness.quantile(0.5) * 1e-3, "late_p99_us": lateness.quantile(0.99) * 1e-3,
            "late_max_us": lateness.quantile(1.0) * 1e-3,
        }

    def _show_progress(self):
        with self.ledger.lock:
            first = self.plan.references[0]
            frames, lost = first.frames, sum(reference.total("lost") for reference in self.plan.references)
            drift = max((reference.lateness.drift for reference in self.plan.references), key=abs)
            gap = max(reference.longest_gap for reference in self.plan.references)
        memory = ", ".join(f"{name.split('-')[-1]} {samples.all[-1]['rss_kib'] / 1024:.1f} MiB" for name, samples in self.samples.items() if samples.all)
        calls = self._driver.calls
        self._screen.progress(f"{frames:,} frames, {lost} lost, drift {drift * 1e-3:.0f} µs, longest gap {gap * 1e-6:.0f} ms; "
                              f"{calls.count:,} calls, {len(calls.wrong)} wrong, longest {calls.longest[0]:.0f} ms; {memory}")
