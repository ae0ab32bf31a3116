"""Command line of scripts/bench."""

import argparse
import sys
import time
import traceback

from . import machine, paths, pictures
from .bench import Bench
from .programs import Program, clean_scratch
from .report import Result, say
from .scenarios import ALL
from .scenarios.peer import SkipScenario
from .table import print_tables


def parse():
    parser = argparse.ArgumentParser(prog="scripts/bench", description="Measures the real programs against baselines; "
                                     "results and pictures go to build/bench/results.")
    parser.add_argument("scenario", nargs="*", help=", ".join(ALL) + "; all of them by default")
    parser.add_argument("--rounds", type=int, help="rounds of each case (5, or 1 with --quick)")
    parser.add_argument("--seconds", type=float, help="length of a run in pacing, drift, busy, idle and peer")
    parser.add_argument("--quick", action="store_true", help="see that everything works; the figures mean nothing")
    parser.add_argument("--wait", type=float, default=60.0, help="seconds to wait in all for a quiet machine, for each scenario (60)")
    parser.add_argument("--table", action="store_true", help="measure nothing: print the last results as Markdown")
    options = parser.parse_args()
    for name in options.scenario:
        if name not in ALL:
            parser.error(f"no scenario {name!r}; there are {', '.join(ALL)}")
    options.rounds = options.rounds or (1 if options.quick else 5)
    options.scenario = options.scenario or list(ALL)
    return options


def forget(name, options):
    """Figures of an earlier run must not be taken for this one's."""
    paths.result(name, options.quick).unlink(missing_ok=True)


def run_one(name, options):
    """False when the scenario could not be measured to its end."""
    say(f"==> {name}")
    patience = None if options.quick else machine.Patience(options.wait, say)
    result = Result(name, options, machine.describe())
    forget(name, options)
    clean_scratch()
    started = time.monotonic()
    try:
        ALL[name].run_scenario(Bench(options, result, patience))
    except SkipScenario as reason:
        say(f"  skipped: {reason}")
        return True
    # Whatever it is: a program that died shows in many ways, and the other scenarios are still to be measured.
    except Exception as failure:  # pylint: disable=broad-exception-caught
        say(f"  FAILED: {failure}")
        if not isinstance(failure, RuntimeError):
            traceback.print_exc()
        return False
    finally:
        Program.end_all()
        clean_scratch()
    result.print_medians()
    noise = result.noise()
    if noise > machine.QUIET_SHARE:
        say(f"  the machine was NOT quiet: other programs and the hypervisor took {noise:.2f} cores in the median run; "
            "see `others` and `steal` beside each round")
    result.data["seconds"] = time.monotonic() - started
    result.write()
    if not options.quick:
        pictures.draw(result.data)
    return True


def main():
    options = parse()
    if options.table:
        print_tables(options.scenario)
        return 0
    measured = [run_one(name, options) for name in options.scenario]
    return 0 if all(measured) else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        Program.end_all()
        sys.exit(130)
