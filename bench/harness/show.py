"""Data directories for the service: playlists and generated recordings."""

import json
import shutil

from . import paths
from .programs import run

# Packets go to 127.0.0.1 at the destination's port whatever the address; this one is for documentation.
ADDRESS = "192.0.2.1"


class Show:
    """A data directory; remove() deletes it."""

    def __init__(self, name="show"):
        self.root = paths.SCRATCH / name
        shutil.rmtree(self.root, ignore_errors=True)
        (self.root / "playlists").mkdir(parents=True)
        self._playlists = []

    def recording(self, name, universes, frames, interval_ns=-1, sequence=1, first=0, steps=1):
        """
        `frames` frames of `universes` full packets from universe `first` on; a negative interval: no timing packets.
        The sequence byte of frame n is `sequence` + n % `steps`.
        """
        run([paths.tool("make_show"), self.root / name, universes, frames, interval_ns, sequence, first, steps])
        return (self.root / name).stat().st_size

    def playlist(self, number, recording, port=None, loop=False, brightness=100, zones=None, fps=-1, ppf=None):
        """`port` None: no destinations. `zones`: universe to zone id."""
        effect = {
            "path": recording,
            "fps": fps,
            "outputs": [] if port is None else [f"*:{ADDRESS}:{port}"],
            "universes": [{"id": universe, "zone": zone} for universe, zone in (zones or {}).items()],
        }
        if ppf is not None:
            effect["ppf"] = ppf
        (self.root / "playlists" / f"{number}.json").write_text(json.dumps([effect]), encoding="ascii")
        self._playlists.append({"Id": number, "Loop": loop, "Brightness": brightness})
        (self.root / "playlists" / "playlists.json").write_text(json.dumps(self._playlists), encoding="ascii")
        return self

    def remove(self):
        shutil.rmtree(self.root, ignore_errors=True)
