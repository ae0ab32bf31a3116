"""Faults to plant half-way through a run, to see that the verdict tells of each."""

import os
import signal
import time

LEAK_KIB = 256
STALL_SECONDS = 7.0
# Far from a frame, so that only what judges drift can see it.
LATE_NS = 3_000_000
SLOW_NS = 6_000_000_000


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


def late(run):
    """From now on every frame seems to arrive a little later than it does."""
    enter = run.ledger.add

    def add_later(time_ns, serial, universe, sequence, length):
        enter(time_ns + LATE_NS, serial, universe, sequence, length)

    with run.ledger.lock:
        run.ledger.add = add_later


def alter_call(run, alter):
    """The next call seems to have come to what alter(begin, end, answer) gives."""
    service = run.rig.service
    ask = service.ask

    def ask_once(line):
        service.ask = ask
        return alter(*ask(line))

    service.ask = ask_once


def answer_wrongly(run):
    alter_call(run, lambda begin, end, answer: (begin, end, "neither"))


def answer_slowly(run):
    alter_call(run, lambda begin, end, answer: (begin, end + SLOW_NS, answer))


def alter_samples(run, alter):
    """What the service holds on to seems, from now on, to be what alter(sample) makes of it."""
    samples = run.samples["cuewright"]
    take = samples.take

    def take_altered():
        sample = take()
        alter(sample)
        return sample

    samples.take = take_altered


def leak(run):
    """The service seems to keep some more memory from one rest to the next."""
    leaked = 0

    def grow(sample):
        nonlocal leaked
        leaked += LEAK_KIB
        sample["rss_kib"] += leaked

    alter_samples(run, grow)


def hold(what):
    """The service seems to hold on to one more of these."""

    def add_one(sample):
        sample[what] += 1

    return lambda run: alter_samples(run, add_one)


FAULTS = {"forwarder": kill_forwarder, "service": kill_service, "stall": stall_forwarder, "frame": lose_frame, "leak": leak,
          "late": late, "answer": answer_wrongly, "slow": answer_slowly, "descriptor": hold("descriptors"), "thread": hold("threads")}
