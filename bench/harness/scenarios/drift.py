"""Whether anything adds up over a minute, for the numbers of universes and playlists that pacing runs for less."""

from .pacing import PLAYLISTS, Pair, judge_drift, judge_losses


def run_scenario(bench):
    seconds = bench.options.seconds or bench.choose(60.0, 2.0)
    counts = bench.choose(((1, 1), (10, 1), (64, 1), (1, PLAYLISTS), (64, PLAYLISTS), (256, PLAYLISTS), (4, 64)),
                          ((16, 1), (1, PLAYLISTS), (4, 64)))
    cases = []
    for universes, playlists in counts:
        name = f"{universes} universes" + (f", {playlists} playlists" if playlists > 1 else "")
        pair = Pair(universes, seconds, playlists)
        cases += [(name, pair.ours), (f"{name}, bare loop", pair.bare)]
    bench.rounds(*cases)
    judge_drift(bench, [name for name, _ in cases])
    judge_losses(bench)
    for name, _ in cases:
        told = {"settled": max(bench.result.values(name, "first_max_us"))}
        if "bare" not in name:
            told["while_loading"] = max(bench.result.values(name, "while_loading_latest"))
        bench.result.tell(f"drift, {name}: latest first packet in \u00b5s, worst round", **told)
