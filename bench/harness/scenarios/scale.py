"""Cost of a packet for growing shows, with recordings that are always overdue, so that no waiting is in it."""

from .. import paths
from ..analysis import rate
from ..machine import supply_pages
from ..programs import Receiver, run_measured
from ..show import ADDRESS, Show
from .burst import overdue

# The same for every point, so that only the shape of the show differs and not how well it fits a cache.
STORED_PACKETS = 64_000
# Half a microsecond a packet of all playlists: less than sending takes, so that every frame is overdue.
PACKETS_PER_SECOND = 2_000_000


def measure(seconds, universes=16, playlists=1, zones=0, nodes=0, zone_each=False):
    """`zones` are spread over the universes; `zone_each`: every playlist has one of its own, on all of them."""
    show = Show()
    settle = 0.3 + 0.02 * playlists
    with Receiver(int(1_200_000 * (settle + seconds + 1))) as receiver:
        port = None if nodes else receiver.port
        for number in range(1, playlists + 1):
            show.recording(f"{number}.rec", universes, max(STORED_PACKETS // universes // playlists, 1), sequence=number)
            in_zones = {universe: universe % zones + 1 for universe in range(universes)} if zones else None
            if zone_each:
                in_zones = dict.fromkeys(range(universes), number)
            show.playlist(number, f"{number}.rec", port, loop=True, zones=in_zones,
                          fps=PACKETS_PER_SECOND // universes // playlists, ppf=universes)

        def prepare(service):
            if zones or zone_each:
                service.zones(playlists if zone_each else zones, 512)
            if nodes:
                # One node for each universe that plays, the rest on others.
                at = [*range(universes), *range(1000, 1000 + nodes - universes)][:nodes]
                service.announce(";".join(f"1:{universe}:{ADDRESS}:{receiver.port}" for universe in at))

        rows, cpu, dropped = overdue(receiver, show, range(1, playlists + 1), seconds, prepare, settle)
    show.remove()
    counts = [int((rows["sequence"] == number).sum()) for number in range(1, playlists + 1)]
    return {"ns_per_packet": 1e9 / rate(rows, 0), "cpu_ns_per_packet": cpu / len(rows) * 1e9, "dropped": dropped, "least_share": min(counts) * playlists / len(rows)}


def bare(packets):
    with Receiver(packets) as receiver:
        supply_pages()
        cpu = run_measured([paths.tool("sendto_loop"), receiver.port, packets])
        return {"ns_per_packet": 1e9 / rate(receiver.rows(), receiver.dropped), "cpu_ns_per_packet": cpu / packets * 1e9}


def varied(sweep):
    """What a sweep varies."""
    return sweep.split(",")[0]


def run_scenario(bench):
    result = bench.result
    seconds = bench.choose(0.5, 0.2)
    # With zones each universe and destination has a frame of its own that all playlists write into.
    sweeps = {
        "universes": [dict(universes=n) for n in (1, 4, 16, 64, 256)],
        "playlists": [dict(playlists=n) for n in (1, 4, 16, 64)],
        "universes, merged": [dict(universes=n, zones=1) for n in (1, 4, 16, 64, 256)],
        "playlists, merged": [dict(playlists=n, zones=1) for n in (1, 4, 16, 64)],
        "playlists, a zone each": [dict(playlists=n, zone_each=True) for n in (1, 4, 16, 64)],
        "zones": [dict(universes=64, zones=n) for n in (0, 1, 8, 64)],
        "nodes": [dict(universes=1, nodes=n) for n in (1, 10, 100, 1000)],
    }
    cases = [("bare sendto", lambda: bare(bench.choose(200_000, 20_000)))]
    for name, points in sweeps.items():
        for point in points:
            cases.append((f"{point[varied(name)]} {name}", lambda p=point: measure(seconds, **p)))
    bench.rounds(*cases)
    for name, points in sweeps.items():
        sizes = [point[varied(name)] for point in points]
        costs = {size: result.median(f"{size} {name}", "ns_per_packet") for size in sizes}
        result.tell(f"scale, {name}: ns per packet", **{str(key): value for key, value in costs.items()})
        result.tell(f"scale, {name}: CPU ns per packet",
                    **{str(size): result.median(f"{size} {name}", "cpu_ns_per_packet") for size in sizes})
        # From no zone to one the work itself differs; from there on it must not grow.
        judged = [cost for key, cost in costs.items() if key != 0]
        if varied(name) in ("universes", "playlists"):
            result.goal(f"scale, {name}: dearest over cheapest", max(judged) / min(judged), 1.15)
        else:
            result.tell(f"scale, {name}: dearest over cheapest", ratio=max(judged) / min(judged))
    result.goal("scale: share of the playlist that sends least, of an equal one",
                min(one["least_share"] for case, entry in result.data["cases"].items() if case != "bare sendto"
                    for one in entry["rounds"]), 0.9, at_least=True)
