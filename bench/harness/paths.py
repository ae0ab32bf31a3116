"""Where things lie: the checkout, the benchmark build, its programs and results."""

from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
BUILD = TOP / "build" / "bench"
TOOLS = BUILD / "bench"
SERVICE = BUILD / "core" / "apps" / "output" / "repeater" / "src" / "cuewright"
FORWARDER = BUILD / "core" / "apps" / "output" / "forwarder" / "src" / "cuewright-forwarder"
RESULTS = BUILD / "results"
SCRATCH = BUILD / "scratch"


def tool(name):
    return str(TOOLS / name)


def result(scenario, quick=False):
    """Where a scenario's figures lie; those of a quick run mean nothing and replace no others."""
    return RESULTS / (f"{scenario}-quick.json" if quick else f"{scenario}.json")
