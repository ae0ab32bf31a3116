"""What is played: playlists, zones, and what a call is answered by while the references play."""

from harness.show import ADDRESS, Show

from .grid import Grid
from .ledger import STEPS, Reference

FPS = 40
INTERVAL_NS = 25_000_000
# A recording with its own timing always ends with a frame of 30 ms.
LAST_NS = 30_000_000
REFERENCE_FRAMES = 384
LOOP_FRAMES = 128
SHORT_FRAMES = 160

# (id, priority, first channel, count). The references' zone owns channels 0 to 127 whatever else plays.
ZONES = ((1, 5, 0, 256), (2, 9, 128, 256), (3, 3, 64, 448), (4, 9, 300, 200))
REFERENCE_ZONE = 1

# Playlists by number.
FIXED_RATE, OWN_TIMING = 1, 2
OVER, UNDER, SHORT, ZONELESS, NODES = 3, 4, 5, 6, 7
MERGED = (OVER, UNDER, SHORT, ZONELESS)
NODE_UNIVERSES = 4
NODE_ADDRESSES = ("192.0.2.7", "192.0.2.8")


class Plan:
    """Two references that share the universes, and playlists that are merged into them or go to nodes."""

    def __init__(self, universes, port):
        self.universes = universes
        self.port = port
        half = universes // 2
        self.references = [
            Reference(FIXED_RATE, range(half), Grid(REFERENCE_FRAMES, INTERVAL_NS)),
            Reference(OWN_TIMING, range(half, universes), Grid(REFERENCE_FRAMES, INTERVAL_NS, LAST_NS), brightness=50),
        ]

    def write(self):
        """The data directory."""
        show = Show()
        everywhere, half = range(self.universes), self.universes // 2

        def add(number, universes, frames, own_timing=False, zone=None, **playlist):
            recording = f"{number}.rec"
            show.recording(recording, len(universes), frames, INTERVAL_NS if own_timing else -1, number * STEPS,
                           universes[0], STEPS)
            zones = {} if zone is None else {universe: zone for universe in universes}
            show.playlist(number, recording, zones=zones, fps=-1 if own_timing else FPS, **{"port": self.port, "loop": True, **playlist})

        add(FIXED_RATE, range(half), REFERENCE_FRAMES, zone=REFERENCE_ZONE, ppf=half)
        add(OWN_TIMING, range(half, self.universes), REFERENCE_FRAMES, own_timing=True, zone=REFERENCE_ZONE, brightness=50)
        add(OVER, everywhere, LOOP_FRAMES, zone=2, ppf=self.universes)
        add(UNDER, everywhere, LOOP_FRAMES, own_timing=True, zone=3)
        add(SHORT, everywhere, SHORT_FRAMES, zone=4, loop=False)
        add(ZONELESS, range(half), LOOP_FRAMES)
        add(NODES, range(NODE_UNIVERSES), LOOP_FRAMES, port=None)
        return show

    def zone_table(self):
        return "zone_table " + " ".join(str(number) for zone in ZONES for number in zone)

    def nodes(self, chosen):
        """A message of the discovery service: one of the two nodes for each universe, and not the other."""
        return ";".join(f"{int(which == chosen)}:{universe}:{address}:{self.port}"
                        for universe in range(NODE_UNIVERSES) for which, address in enumerate(NODE_ADDRESSES))


assert ADDRESS not in NODE_ADDRESSES
