"""The scenarios by name, in the order in which they run. Each module has run(bench)."""

from . import burst, control, forwarder, idle, load, pacing, peer, pieces, scale

ALL = {
    "pieces": pieces,
    "burst": burst,
    "pacing": pacing,
    "load": load,
    "control": control,
    "scale": scale,
    "forwarder": forwarder,
    "idle": idle,
    "peer": peer,
}
