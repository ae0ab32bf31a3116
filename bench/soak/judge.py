"""What must hold at the end, as rows of a table: arithmetic on given figures, no more."""

from dataclasses import dataclass

from harness.machine import QUIET_SHARE

MILLISECOND = 1_000_000

# A worker, a bus or a forwarder that stands still for so long is stuck, whatever the machine does beside it.
STUCK_MS = 5000.0
# What is nobody's but ours when the machine had nothing else to do: a call waits for the frame that is due next, 25 ms at most, and
# a play for the loader's first packets.
QUIET_MS = 100.0
# With the jitter taken off nothing may move.
DRIFT_MS = 1.0
# Memory: what a short run cannot tell from what the C library keeps of the last loads, and what a long one may not show.
GROWTH_KB = 512.0
SLOPE_KB_PER_HOUR = 512.0


@dataclass
class Check:
    what: str
    expected: str
    got: str
    good: bool


def count(value):
    return f"{value:,}"


def zero(what, value, note=""):
    return Check(what, "0", count(value) + note, value == 0)


def at_most_ms(what, nanoseconds, limit_ms):
    value = nanoseconds / MILLISECOND
    return Check(what, f"at most {limit_ms:,.0f} ms", f"{value:,.3f} ms", value <= limit_ms)


def quiet(noise):
    """Whether the machine had nothing else to do; noise: of machine.Noise."""
    return noise["others"] + noise["steal"] <= QUIET_SHARE


def standstill_ms(is_quiet):
    """The longest that anything may stand still."""
    return QUIET_MS if is_quiet else STUCK_MS


def reference_checks(figures, is_quiet):
    """
    One playlist that nobody touched. figures: name, universes, due_before and due_after (frames due when the show was
    ended, by the sum of delays, and when the call had returned), frames (that came on every universe), received (on
    all universes, in their turn), lost, repeated, disordered, drift_ns, last_ns (how late the last frame was), gap_ns,
    frame_ns (how long a frame stands).
    """
    name = figures["name"]
    least, most = figures["due_before"], figures["due_after"]
    frames = figures["frames"]
    expected = count(least) if least == most else f"{count(least)} to {count(most)}"
    # The call that ends the show falls between two frames: what came after its due time belongs to the last one.
    yield Check(f"{name}: frames on each of {figures['universes']} universes", expected, count(frames), least <= frames <= most)
    yield Check(f"{name}: packets", count(frames * figures["universes"]), count(figures["received"]),
                figures["received"] == frames * figures["universes"])
    faults = [figures["lost"], figures["repeated"], figures["disordered"]]
    yield Check(f"{name}: lost, repeated, out of order", "0, 0, 0", ", ".join(map(count, faults)), not any(faults))
    yield at_most_ms(f"{name}: drift against the sum of delays", abs(figures["drift_ns"]), DRIFT_MS)
    # One frame, however late others were: what once stood still has to be made up for by the end.
    limit = figures["frame_ns"] / MILLISECOND
    yield at_most_ms(f"{name}: the last frame against the sum of delays", abs(figures["last_ns"]), limit)
    yield at_most_ms(f"{name}: longest gap beyond a frame", figures["gap_ns"] - figures["frame_ns"], standstill_ms(is_quiet))


def book_checks(books):
    """
    Every datagram of all playlists. books: followed and faults (datagrams and steps not by one of the other playlists),
    merged and stale, strangers, received, far_side_drops; forwarder: its counters or None; service_sent: by the
    kernel's count, or None where other programs' datagrams are among it; kernel_losses likewise.
    """
    yield zero("other playlists: steps not by one", books["faults"], f" of {count(books['followed'])}")
    yield zero("merged frames that show an old frame of the reference", books["stale"], f" of {count(books['merged'])}")
    yield Check("the other playlists played and were merged", "more than 0", count(books["merged"]), books["merged"] > 0)
    yield zero("datagrams that nobody should have sent", books["strangers"])
    forwarder = books["forwarder"]
    if forwarder is None:
        yield Check("forwarder's counters", "given at its end", "none", False)
    else:
        took = sum(port["received"] for port in forwarder["ports"])
        sent = sum(destination["packets"] for destination in forwarder["destinations"])
        if books["service_sent"] is not None:
            yield Check("datagrams: sent by the service, taken by the forwarder", count(books["service_sent"]), count(took),
                        took == books["service_sent"])
        yield Check("datagrams: taken by the forwarder, sent by it", count(took), count(sent), sent == took)
        yield Check("datagrams: sent by the forwarder, received behind it", count(sent), count(books["received"]), books["received"] == sent)
        yield zero("forwarder: rejected, sent with an error, left unsent", sum(forwarder["rejected"].values()) +
                   sum(destination["errors"] + destination["unsent"] for destination in forwarder["destinations"]))
        yield zero("forwarder: dropped by the kernel or left behind", forwarder["kernel_drops"] + forwarder["left_behind"])
    yield zero("dropped by the receiver's kernel", books["far_side_drops"])
    if books["kernel_losses"] is not None:
        yield zero("the kernel's own count of lost datagrams", books["kernel_losses"])


def resource_checks(name, figures):
    """What a program held on to; figures of samples.growth()."""
    yield Check(f"{name}: samples after the warm-up", "at least 2", count(figures["samples"]), figures["samples"] >= 2)
    grew = figures["growth_kb"] > GROWTH_KB and figures["slope_kb_per_hour"] > SLOPE_KB_PER_HOUR
    yield Check(f"{name}: memory slope", f"at most {SLOPE_KB_PER_HOUR:,.0f} kB/hour, or {GROWTH_KB:,.0f} kB in all",
                f"{figures['slope_kb_per_hour']:,.0f} kB/hour, {figures['growth_kb']:,.0f} kB in all", not grew)
    for what in ("descriptors", "threads"):
        first, most = figures[what]
        yield Check(f"{name}: {what} at rest", f"at most {first}", str(most), most <= first)


def control_checks(calls, wrong, longest_ms, longest, is_quiet):
    """calls: how many; wrong: answers that are not what the state says; longest: the longest call's method."""
    yield Check("control calls", "more than 0", count(calls), calls > 0)
    yield zero("control calls answered wrongly", wrong, f" of {count(calls)}")
    limit = standstill_ms(is_quiet)
    yield Check("longest control call", f"at most {limit:,.0f} ms", f"{longest_ms:,.1f} ms ({longest})", longest_ms <= limit)


def end_check(casualty):
    """casualty: which program ended too early, or None."""
    return Check("all programs ran to the end", "yes", casualty or "yes", casualty is None)


def verdict(checks):
    return all(check.good for check in checks)


def table(checks):
    """Lines for people."""
    rows = [("", "expected", "got", "")] + [(check.what, check.expected, check.got, "ok" if check.good else "FAILED") for check in checks]
    widths = [max(len(row[column]) for row in rows) for column in range(3)]
    for row in rows:
        yield f"{row[0]:<{widths[0]}}  {row[1]:>{widths[1]}}  {row[2]:>{widths[2]}}  {row[3]}".rstrip()
