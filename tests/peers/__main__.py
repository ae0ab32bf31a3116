"""Runs the peer tests in the network namespace that scripts/peers has made."""

import argparse
import json
import os
import platform
import shutil
import subprocess
import sys
import time
import traceback

import discovery_test
import frames_test
import outlet_test
import record_test
import round_trip_test
from rig import SCRATCH, Failed, Rig, Skipped

TESTS = {
    "frames": (frames_test.test, frames_test.FAULTS),
    "outlet": (outlet_test.test, outlet_test.FAULTS),
    "record-ola": (record_test.test_ola, record_test.FAULTS),
    "record-npm": (record_test.test_npm, record_test.FAULTS),
    "discovery": (discovery_test.test, discovery_test.FAULTS),
    "round-trip": (round_trip_test.test, round_trip_test.FAULTS),
}
SOME_SKIPPED = 77


def parse():
    parser = argparse.ArgumentParser(prog="scripts/peers", description="Tests against real peers: tshark, OLA's daemon, an Art-Net sender from npm.",
                                     epilog="Status: 0 all passed, 1 one failed, 2 wrong command line, 77 none failed, but one was skipped. "
                                            "PEERS_BUILD names a directory with built programs to use instead of building.")
    parser.add_argument("names", nargs="*", metavar="NAME", help="tests to run: " + ", ".join(TESTS) + " (all)")
    parser.add_argument("--fault", choices=["all", *sorted({fault for _, faults in TESTS.values() for fault in faults})], metavar="FAULT",
                        help="plants a fault, or with \"all\" each in turn: every run must then fail (--list shows them)")
    parser.add_argument("--list", action="store_true", help="shows the tests and their faults")
    options = parser.parse_args()
    for name in options.names:
        if name not in TESTS:
            parser.error(f"no test {name}; there are {', '.join(TESTS)}")
    if options.fault and not any(faults_of(name, options.fault) for name in options.names or TESTS):
        parser.error(f"no such test has a fault {options.fault}")
    return options


def faults_of(name, chosen):
    """The faults to plant in a test, one a run; None is a run without."""
    return [fault for fault in TESTS[name][1] if chosen in ("all", fault)] if chosen else [None]


def versions():
    """One line about the peers that are there."""
    def first_line(*words):
        if not shutil.which(words[0]):
            return f"no {words[0]}"
        done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False)
        return (done.stdout.splitlines() or ["?"])[0].rstrip(".")

    def package_version():
        try:
            return json.loads((SCRATCH / "node_modules" / "dmxnet" / "package.json").read_text(encoding="utf-8"))["version"]
        except OSError:
            return "missing"

    return (f"{first_line('tshark', '--version')}; {first_line('dpkg-query', '-W', '-f', 'OLA ${Version}', 'ola')}; dmxnet {package_version()} on node "
            f"{first_line('node', '--version')}; Linux {platform.release()}")


def attempt(name, fault):
    """Runs a test: its outcome, what it said, and its figures."""
    rig = None
    try:
        with Rig(name, fault) as rig:
            TESTS[name][0](rig)
    except Skipped as reason:
        return "skipped", str(reason), []
    except Failed as reason:
        return "FAILED", str(reason), rig.figures if rig else []
    except Exception:  # pylint: disable=broad-except
        return "BROKEN", traceback.format_exc(), rig.figures if rig else []
    return "passed", "", rig.figures


def show(title, outcome, message, figures, seconds):
    print(f"{outcome:8} {title} ({seconds:.0f} s)" + (f": {message}" if message else ""), flush=True)
    for figure in figures:
        print(f"         {figure}", flush=True)


def main():
    options = parse()
    if options.list:
        for name, (_, faults) in TESTS.items():
            print(f"{name}: faults {', '.join(faults)}")
        return 0
    print(f"peers: {versions()}; load {os.getloadavg()[0]:.1f} on {os.cpu_count()} cores", flush=True)
    outcomes = []
    for name in options.names or TESTS:
        for fault in faults_of(name, options.fault):
            began = time.monotonic()
            outcome, message, figures = attempt(name, fault)
            if fault and outcome in ("passed", "FAILED"):
                outcome, figures = ("noticed" if outcome == "FAILED" else "UNNOTICED"), []
            outcomes.append(outcome)
            show(f"{name}, fault {fault}" if fault else name, outcome, message, figures, time.monotonic() - began)
    if {"FAILED", "UNNOTICED", "BROKEN"} & set(outcomes):
        return 1
    return SOME_SKIPPED if "skipped" in outcomes else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
