"""Whether anything adds up over a minute, for the numbers of universes and playlists that pacing runs for less."""

from .pacing import PLAYLISTS, Merged, judge_drift, judge_losses, service

# Datagrams within 25 ms from which on playlists wait for each other so long that a bare loop stands beside them.
LARGE = 256


def run_scenario(bench):
    seconds = bench.options.seconds or bench.choose(60.0, 2.0)
    counts = bench.choose(((64, 1), (1, PLAYLISTS), (64, PLAYLISTS), (256, PLAYLISTS), (4, 64)), ((16, 1), (1, PLAYLISTS), (4, 64)))
    cases = []
    for universes, playlists in counts:
        if playlists == 1:
            cases.append((f"{universes} universes", lambda u=universes: service(u, seconds)))
            continue
        merged = Merged(universes, seconds, playlists)
        cases.append((f"{universes} universes, {playlists} playlists", merged.ours))
        if universes * playlists >= LARGE:
            cases.append((f"{universes} universes, {playlists} playlists, bare loop", merged.bare))
    bench.rounds(*cases)
    judge_drift(bench, [name for name, _ in cases])
    judge_losses(bench)
    for name, _ in cases:
        told = {"settled": max(bench.result.values(name, "first_max_us"))}
        if "bare" not in name:
            told["while_loading"] = max(bench.result.values(name, "while_loading_latest"))
        bench.result.tell(f"drift, {name}: latest first packet in \u00b5s, worst round", **told)
