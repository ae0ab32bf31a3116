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
