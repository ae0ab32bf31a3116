"""Whether anything adds up over a minute, for the numbers of universes and playlists that pacing runs for less."""

from .pacing import PLAYLISTS, judge_drift, judge_losses, service


def run_scenario(bench):
    seconds = bench.options.seconds or bench.choose(60.0, 2.0)
    counts = bench.choose(((64, 1), (1, PLAYLISTS), (64, PLAYLISTS), (256, PLAYLISTS), (4, 64)), ((16, 1), (1, PLAYLISTS)))
    cases = [(f"{universes} universes" + (f", {playlists} playlists" if playlists > 1 else ""),
              lambda u=universes, p=playlists: service(u, seconds, p)) for universes, playlists in counts]
    bench.rounds(*cases)
    judge_drift(bench, [name for name, _ in cases])
    judge_losses(bench)
    for name, _ in cases:
        bench.result.tell(f"drift, {name}: latest first packet in \u00b5s, worst round", settled=max(bench.result.values(name, "first_max_us")),
                          while_loading=max(bench.result.values(name, "while_loading_latest")))
