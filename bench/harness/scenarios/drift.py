"""Whether anything adds up over a minute, for the numbers of universes and playlists that pacing runs for less."""

from .pacing import PLAYLISTS, bare, judge_drift, judge_losses, service


def run_scenario(bench):
    seconds = bench.options.seconds or bench.choose(60.0, 2.0)
    most, merged = bench.choose((256, (1, 64, 256)), (16, (1,)))
    many = bench.choose(64, 8)
    cases = [(f"{most} universes, bare loop", lambda: bare(most, seconds))]
    cases += [(f"{universes} universes", lambda u=universes: service(u, seconds)) for universes in bench.choose((1, 64), (1,))]
    cases += [(f"{universes} universes, {PLAYLISTS} playlists", lambda u=universes: service(u, seconds, PLAYLISTS)) for universes in merged]
    cases += [(f"4 universes, {many} playlists", lambda: service(4, seconds, many))]
    bench.rounds(*cases)
    judge_drift(bench, [name for name, _ in cases])
    judge_losses(bench)
