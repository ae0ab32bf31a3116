"""The scenarios by name, in the order in which they run. Each module has run_scenario(bench)."""

from . import burst, busy, control, drift, forwarder, idle, load, pacing, peer, pieces, scale

ALL = {
    "pieces": pieces,
    "burst": burst,
    "pacing": pacing,
    "drift": drift,
    "busy": busy,
    "load": load,
    "control": control,
    "scale": scale,
    "forwarder": forwarder,
    "idle": idle,
    "peer": peer,
}
