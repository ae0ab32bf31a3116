"""Command line of scripts/soak."""

import argparse
import json
import os
import random
import signal
import sys
from pathlib import Path

from harness import paths
from harness.programs import Program, clean_scratch, free_port

from . import judge
from .faults import FAULTS
from .run import Run

ART_NET_PORT = 6454
# The C library keeps a pool of memory for each thread that ever loaded at the same time as others, and in each what the
# largest load left: megabytes that come in steps, at moments that chance decides, and hide a leak.
ONE_POOL = "glibc.malloc.arena_max=1:glibc.malloc.mmap_threshold=131072:glibc.malloc.trim_threshold=131072"


def parse():
    parser = argparse.ArgumentParser(prog="scripts/soak", description="Plays for N minutes through the real service and forwarder "
                                     "under random control calls, and judges what arrived. docs/soak.md says what is judged.",
                                     epilog="Status: 0 all held, 1 something did not, 2 wrong command line.")
    parser.add_argument("--minutes", type=float, default=2.0, metavar="N", help="length of the run (2)")
    parser.add_argument("--universes", type=int, default=16, metavar="N", help="universes at 40 frames a second, 16 to 128 (16)")
    parser.add_argument("--seed", type=int, help="of the random calls; shown at the start")
    parser.add_argument("--json", metavar="FILE", help="writes all figures and samples there")
    parser.add_argument("--default-pools", action="store_true", help="leaves the C library's memory pools as they are, so that "
                        "memory is what it is on a device, and its slope means less")
    parser.add_argument("--fault", choices=FAULTS, help="plants a fault half-way, to see the verdict tell of it")
    options = parser.parse_args()
    if not 0.2 <= options.minutes <= 100_000:
        parser.error("--minutes: 0.2 to 100000")
    if not 16 <= options.universes <= 128:
        parser.error("--universes: 16 to 128")
    if options.seed is None:
        options.seed = random.SystemRandom().randrange(1 << 31)
    return options


def checks_of(figures):
    quiet = judge.quiet(figures["noise"])
    yield judge.end_check(figures["casualty"])
    for reference in figures["references"]:
        yield from judge.reference_checks(reference, quiet)
    yield from judge.book_checks(figures["books"])
    for name, resources in figures["resources"].items():
        yield from judge.resource_checks(name, resources)
    calls = figures["calls"]
    yield from judge.control_checks(calls["count"], len(calls["wrong"]), calls["longest_ms"], calls["longest"], quiet)


def print_beside(figures):
    """What no limit judges."""
    for reference in figures["references"]:
        print(f"{reference['name']}: late by {reference['late_p50_us']:,.0f} µs (p50), {reference['late_p99_us']:,.0f} µs (p99), "
              f"{reference['late_max_us']:,.0f} µs (most)")
    for destination in (figures["books"]["forwarder"] or {"destinations": []})["destinations"]:
        print(f"forwarded for {destination['address']}: {destination['packets']:,} packets")
    for name, one in figures["calls"]["methods"].items():
        print(f"{name}: {one['calls']:,} calls, {one['mean_ms']:.1f} ms in the mean, {one['longest_ms']:.1f} ms the longest")
    for wrong in figures["calls"]["wrong"][:10]:
        print(f"wrong answer: {wrong}")
    noise = figures["noise"]
    print(f"other programs took {noise['others']:.2f} of {figures['machine']['cores']} cores, the hypervisor stole {noise['steal']:.2f}")
    if not judge.quiet(noise):
        print("The machine was not quiet: gaps, lateness and the longest call are partly its own, and only what is stuck fails.")


def soak(options):
    private = os.environ.get("SOAK_PRIVATE_NETWORK") == "yes"
    print(f"seed {options.seed}, {options.universes} universes, {options.minutes:g} minutes, "
          f"{'a network of its own' if private else 'the network of the machine: no broadcast, datagrams are not counted by the kernel'}", flush=True)
    if not options.default_pools:
        os.environ["GLIBC_TUNABLES"] = ONE_POOL
    figures = Run(options, ART_NET_PORT if private else free_port(), private).play()
    checks = list(checks_of(figures))
    figures["checks"] = [vars(check) for check in checks]
    good = judge.verdict(checks)
    figures["good"] = good
    if options.json:
        Path(options.json).write_text(json.dumps(figures, indent=1), encoding="utf-8")
    print("\n".join(judge.table(checks)))
    print_beside(figures)
    failed = sum(not check.good for check in checks)
    print("VERDICT: all held." if good else f"VERDICT: FAILED, {failed} of {len(checks)}.")
    return 0 if good else 1


def main():
    options = parse()
    # Its own, so that a benchmark or another soak of this build is left alone.
    paths.SCRATCH = paths.BUILD / f"soak-{os.getpid()}"
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    clean_scratch()
    try:
        return soak(options)
    except KeyboardInterrupt:
        return 130
    finally:
        Program.end_all()
        clean_scratch()
        paths.SCRATCH.rmdir()


if __name__ == "__main__":
    sys.exit(main())
