"""Faults to plant half-way through a run, to see that the verdict tells of each."""

import os
import signal
import time

LEAK_KIB = 256
STALL_SECONDS = 7.0


def kill_forwarder(run):
    os.kill(run.rig.forwarder.pid, signal.SIGKILL)


def stall_forwarder(run):
    os.kill(run.rig.forwarder.pid, signal.SIGSTOP)
    time.sleep(STALL_SECONDS)
    os.kill(run.rig.forwarder.pid, signal.SIGCONT)


def kill_service(run):
    os.kill(run.rig.service.pid, signal.SIGKILL)


def lose_frame(run):
    """The next row of a reference is thrown away."""
    enter = run.ledger.add

    def lose_one(time_ns, serial, universe, sequence, length):
        if sequence // 32 == run.plan.references[0].playlist:
            run.ledger.add = enter
        else:
            enter(time_ns, serial, universe, sequence, length)

    with run.ledger.lock:
        run.ledger.add = lose_one


def leak(run):
    """From now on the service seems to keep some more memory from one rest to the next."""
    samples = run.samples["cuewright"]
    take = samples.take
    leaked = 0

    def take_more():
        nonlocal leaked
        leaked += LEAK_KIB
        sample = take()
        sample["rss_kib"] += leaked
        return sample

    samples.take = take_more


FAULTS = {"forwarder": kill_forwarder, "service": kill_service, "stall": stall_forwarder, "frame": lose_frame, "leak": leak}
