"""Pictures of results: lateness histogram, scaling curves, control round trips."""

import matplotlib

matplotlib.use("Agg")

import matplotlib.pyplot as plot  # noqa: E402
import numpy  # noqa: E402

from . import paths  # noqa: E402
from .scenarios.pacing import PLAYLISTS  # noqa: E402


def save(figure, name):
    figure.tight_layout()
    # The same data give the same file.
    matplotlib.rcParams["svg.hashsalt"] = "cuewright"
    figure.savefig(paths.RESULTS / f"{name}.svg", metadata={"Date": None, "Creator": None})
    plot.close(figure)


def pooled(data, case, figure):
    return numpy.concatenate([entry[figure] for entry in data["cases"][case]["rounds"]])


def median(data, case, figure):
    return float(numpy.median([entry[figure] for entry in data["cases"][case]["rounds"]]))


def pacing(data):
    counts = [int(case.split()[0]) for case in data["cases"] if case.endswith("universes") and case[0].isdigit()]
    figure, axes = plot.subplots(2, len(counts), figsize=(3.2 * len(counts), 5.6), sharex=True, sharey=True, squeeze=False)
    bins = numpy.logspace(-2, 5, 71)
    for row, playlists in enumerate(("", f", {PLAYLISTS} playlists")):
        for axis, universes in zip(axes[row], counts):
            ours = f"{universes} universes{playlists}"
            for case, label in ((f"{ours}, bare loop", "bare loop"), (ours, "cuewright")):
                values = numpy.maximum(pooled(data, case, "first_us"), bins[0])
                # Parts: the cases do not all last equally long.
                axis.hist(values, bins=bins, weights=numpy.full(len(values), 1 / len(values)), histtype="step", label=label)
            axis.set(xscale="log", yscale="log", title=f"{universes} universe{'s' if universes > 1 else ''}{playlists}")
        axes[row][0].set_ylabel("part of the frames")
    for axis in axes[1]:
        axis.set_xlabel("µs late")
    axes[0][0].legend(fontsize="small")
    save(figure, "pacing")


def scale(data):
    figure, axes = plot.subplots(1, 4, figsize=(12, 3), sharey=True)
    bare = median(data, "bare sendto", "ns_per_packet")
    for axis, name in zip(axes, ("universes", "playlists", "zones", "nodes")):
        points = sorted((int(case.split()[0]), median(data, case, "ns_per_packet")) for case in data["cases"] if case.endswith(" " + name))
        axis.plot([max(x, 0.5) for x, _ in points], [y for _, y in points], marker="o", label="cuewright")
        merged = sorted((int(case.split()[0]), median(data, case, "ns_per_packet")) for case in data["cases"]
                        if case.endswith(f" {name}, merged"))
        if merged:
            axis.plot([x for x, _ in merged], [y for _, y in merged], marker="s", label="cuewright, merged")
        axis.axhline(bare, color="grey", linestyle="--", label="bare sendto")
        axis.set(xscale="log", xlabel=name, ylim=(0, None))
    axes[0].set_ylabel("ns per packet")
    axes[0].legend(fontsize="small")
    save(figure, "scale")


def control(data):
    figure, axis = plot.subplots(figsize=(6, 3))
    for name in ("set_brightness", "pause_playlist", "play_playlist", "stop_playlist", "getLevel"):
        values = numpy.sort(pooled(data, "16 universes", name))
        axis.step(values, numpy.arange(1, len(values) + 1) / len(values), label=name)
    axis.set(xlabel="round trip, ms", ylabel="part of the calls")
    axis.legend(fontsize="small")
    save(figure, "control")


def draw(data):
    painter = {"pacing": pacing, "scale": scale, "control": control}.get(data["scenario"])
    if painter is not None:
        painter(data)
