"""The control software's part: random calls, each with the answer that it must get, and how long each took."""

import time
from collections import Counter

from .plan import MERGED, NODES, SHORT, ZONES

WILD = (*MERGED, NODES)
OVERTURES, OVERTURE_SECONDS = 20, 0.05
NONE, TRUE, FALSE = "-", "1", "0"


class Calls:
    """Times in milliseconds and wrong answers of all calls, by method."""

    def __init__(self):
        self.counts = Counter()
        self.total_ms = Counter()
        self.longest_ms = {}
        self.wrong = []

    def enter(self, name, milliseconds, answer, expected):
        self.counts[name] += 1
        self.total_ms[name] += milliseconds
        self.longest_ms[name] = max(self.longest_ms.get(name, 0.0), milliseconds)
        if expected is not None and answer != expected:
            self.wrong.append(f"{name}: {answer} instead of {expected}")

    @property
    def count(self):
        return sum(self.counts.values())

    @property
    def longest(self):
        """(milliseconds, method) of the longest call of all."""
        return max(((ms, name) for name, ms in self.longest_ms.items()), default=(0.0, "none"))

    def table(self):
        return {name: {"calls": count, "mean_ms": self.total_ms[name] / count, "longest_ms": self.longest_ms[name]}
                for name, count in sorted(self.counts.items())}


class Driver:
    def __init__(self, service, ledger, plan, random, broadcast):
        """broadcast: whether output may go to the broadcast address, which lies in a network of our own."""
        self._service = service
        self._ledger = ledger
        self._plan = plan
        self._random = random
        self._broadcast = broadcast
        self._loaded = set()
        self._unicast = True
        self._node = 0
        self.calls = Calls()

    def call(self, line, expected, name=None):
        """One call; its begin and end, nanoseconds of CLOCK_MONOTONIC."""
        begin, end, answer = self._service.ask(line)
        words = line.split()
        method = name or (words[1] if words[0] in ("call", "zone") else words[0])
        self.calls.enter(method, (end - begin) * 1e-6, answer, expected)
        return begin, end

    def begin(self):
        """Zones, nodes and the references; then everything once that a later moment may bring for the first time."""
        self.call(self._plan.zone_table(), TRUE, "init_zones")
        self._service.announce(self._plan.nodes(self._node))
        for reference in self._plan.references:
            self.call(f"call play_playlist {reference.playlist}", TRUE, "play_playlist, loading")
        # What loads that meet leave behind in the C library's pools is there from the first sample on.
        for _ in range(OVERTURES):
            for playlist in WILD:
                self.play(playlist)
            time.sleep(OVERTURE_SECONDS)
            self.rest()
        for playlist in WILD:
            self.play(playlist)
        self.swap_node()
        for _ in range(2):
            time.sleep(0.1)
            self.switch_unicast()

    def play(self, playlist):
        name = "play_playlist" if playlist in self._loaded else "play_playlist, loading"
        self.call(f"call play_playlist {playlist}", TRUE, name)
        self._loaded.add(playlist)

    def stop(self, playlist):
        self.call(f"call stop_playlist {playlist}", NONE)
        if playlist in self._loaded:
            self._loaded.remove(playlist)
            with self._ledger.lock:
                self._ledger.unloaded(playlist)

    def pause(self, playlist):
        self.call(f"call pause_playlist {playlist}", TRUE if playlist in self._loaded else FALSE)

    def brightness(self, playlist):
        self.call(f"call set_brightness {playlist} {self._random.randint(-20, 130)}", NONE)

    def speed_boost(self, playlist):
        self.call(f"call set_speed_boost {playlist} {self._random.randint(-50, 150)}", NONE)

    def zones(self, _playlist):
        """Refused, all of them, while anything is loaded."""
        identity, priority, first, count = self._random.choice(ZONES)
        line = self._random.choice((
            self._plan.zone_table(), f"zone add_zone {identity + 10} {priority} {first} {count}",
            f"zone update_zone {identity} {priority + 1} {first} {count}", f"call remove_zone {identity}", "call remove_all_zones"))
        self.call(line, FALSE, "init_zones" if line.startswith("zone_table") else None)

    def level(self, _playlist):
        self.call("level", "3", "getLevel")

    def switch_unicast(self, _playlist=None):
        if self._broadcast:
            self._unicast = not self._unicast
            self.call(f"unicast {int(self._unicast)}", NONE, "set_unicast_enabled")

    def swap_node(self, _playlist=None):
        self._node = 1 - self._node
        self._service.announce(self._plan.nodes(self._node))

    def perform(self, until, between):
        """Random calls until that time, of time.monotonic(); calls between() after each."""
        acts = (self.play, self.stop, self.pause, self.brightness, self.speed_boost, self.zones, self.level,
                self.switch_unicast, self.swap_node)
        weights = (6, 2, 2, 4, 3, 1, 1, 1, 0.3)
        for playlist in self._random.sample(WILD, len(WILD)):
            self.play(playlist)
        while time.monotonic() < until:
            act, = self._random.choices(acts, weights)
            playlist = self._random.choice(WILD)
            if act == self.play and playlist == SHORT and playlist in self._loaded:
                # It ends by itself and plays again only after it has been unloaded.
                self.stop(playlist)
            act(playlist)
            between()
            time.sleep(self._random.uniform(0.0, 0.06))

    def rest(self):
        """Unloads all but the references."""
        for playlist in sorted(self._loaded):
            self.stop(playlist)

    def end(self):
        """Unloads everything; begin and end of the call."""
        self._loaded.clear()
        return self.call("call stop", NONE)
