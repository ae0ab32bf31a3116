"""Compares what was seen with what a recording holds."""

import collections
import math

from rig import require


def rank(values, share):
    """The smallest value that at least this share does not exceed."""
    ordered = sorted(values)
    return ordered[max(0, math.ceil(len(ordered) * share / 100) - 1)]


def micro(nanoseconds):
    return f"{nanoseconds / 1000:,.3f} µs"


def firsts(recorded):
    """The places of the packets whose times a recording gives exactly: the first one of each moment."""
    return [index for index, frame in enumerate(recorded) if frame.first]


def same_packets(wanted, seen, what):
    """Universe and levels, one by one in their order."""
    for index, (one, other) in enumerate(zip(wanted, seen)):
        require(one.universe == other.universe, f"{what}: packet {index} is of universe {other.universe} instead of {one.universe}")
        channels = [channel for channel, pair in enumerate(zip(one.levels, other.levels)) if pair[0] != pair[1]]
        require(not channels, f"{what}: packet {index}, universe {one.universe} has {len(channels)} wrong levels, the first in channel "
                f"{channels[0] + 1 if channels else 0}")
        require(len(one.levels) == len(other.levels), f"{what}: packet {index} has {len(other.levels)} channels instead of {len(one.levels)}")
    require(len(wanted) == len(seen), f"{what}: {len(seen)} packets instead of {len(wanted)}")


def same_by_universe(wanted, seen, what):
    """The packets of each universe in their order; of different ones in any order."""
    def sorted_out(packets):
        universes = collections.defaultdict(list)
        for packet in packets:
            universes[packet.universe].append(packet)
        return universes

    expected, found = sorted_out(wanted), sorted_out(seen)
    require(expected.keys() == found.keys(), f"{what}: universes {sorted(found)} instead of {sorted(expected)}")
    for universe, packets in expected.items():
        known = {packet.levels for packet in packets}
        strangers = sum(packet.levels not in known for packet in found[universe])
        lost = sum((collections.Counter(packet.levels for packet in packets) - collections.Counter(packet.levels for packet in found[universe])).values())
        repeated = len(found[universe]) - strangers - (len(packets) - lost)
        require(not (strangers or lost or repeated),
                f"{what}: universe {universe}: {lost} of {len(packets)} packets lost, {repeated} repeated, {strangers} with levels that none has")
        same_packets(packets, found[universe], what)


def stamp_errors(recorded, captured):
    """How far a recording's times are from the capture's, both counted from the first packet, in nanoseconds."""
    return [abs((recorded[index].time - recorded[0].time) - (captured[index].time - captured[0].time)) for index in firsts(recorded)]


def interval_errors(recorded, one, other):
    """How far the intervals between the moments of a recording differ between two captures of it, in nanoseconds."""
    places = firsts(recorded)
    return [abs((one[after].time - one[before].time) - (other[after].time - other[before].time)) for before, after in zip(places, places[1:])]


def lateness(recorded, seen):
    """How late packets are against a recording; the least late one is in time."""
    late = [one.time - other.time for one, other in zip(seen, recorded)]
    return [time - min(late) for time in late]
