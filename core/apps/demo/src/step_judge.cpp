#include "step_judge.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <span>

#include "statistics.h"

namespace demo {

namespace {

constexpr std::size_t kDmxHeader = 18;
constexpr std::size_t kSequenceAt = 12;
constexpr std::size_t kUniverseAt = 14;
constexpr std::size_t kPacketSize = kDmxHeader + kChannels;

/// Header of every packet of the show: all 512 channels, no physical port.
std::array<std::uint8_t, kDmxHeader> dmx_header(int sequence, int universe) {
    return {'A',
            'r',
            't',
            '-',
            'N',
            'e',
            't',
            0,
            0x00,
            0x50,
            0,
            14,
            static_cast<std::uint8_t>(sequence),
            0,
            static_cast<std::uint8_t>(universe & 0xFF),
            static_cast<std::uint8_t>(universe >> 8),
            kChannels >> 8,
            kChannels & 0xFF};
}

Levels levels_of(const ReceivedPacket& packet) {
    Levels levels;
    std::copy_n(packet.bytes.begin() + kDmxHeader, levels.size(), levels.begin());
    return levels;
}

}  // namespace

void LineBook::forget(int playlist) {
    for (auto& [name, line] : lines) {
        line.positions.erase(playlist);
    }
}

const LineBook::Line* LineBook::find(const std::string& destination) const {
    const auto found = std::ranges::find_if(
        lines, [&destination](const auto& entry) { return entry.second.destination == destination; });
    return found == lines.end() ? nullptr : &found->second;
}

double StreamMeasurement::rate(double expected) const {
    double farthest = 0;
    double distance = -1;
    for (const UniverseMeasurement& universe : universes) {
        const double rate = mean_rate(universe.arrivals);
        if (std::abs(rate - expected) > distance) {
            distance = std::abs(rate - expected);
            farthest = rate;
        }
    }
    return farthest;
}

StepJudge::StepJudge(const StepExpectation& step, LineBook& book, std::uint32_t round)
    : step_(step), book_(book), round_(round), streams_(step.streams.size()) {
    for (std::size_t i = 0; i < streams_.size(); ++i) {
        for (const std::string& destination : step.streams[i].destinations) {
            for (const int universe : playlist(step.streams[i].playlist).universes) {
                streams_[i].universes.push_back({.destination = destination, .universe = universe});
            }
        }
    }
}

void StepJudge::take(const ReceivedPacket& packet) {
    if (const std::optional<Mark> mark = read_mark(packet.bytes)) {
        take_mark(*mark, packet.line);
        return;
    }
    const Place place = place_of(packet.bytes);
    if (place.plan == nullptr) {
        ++strays_;
        return;
    }
    LineBook::Line& line = book_.lines[packet.line];
    const bool in_order = follow(line, place);
    if (std::ranges::find(marked_, packet.line) != marked_.end()) {
        judge(line, place, packet, in_order);
        return;
    }
    // Sent before the step, or to somewhere that is no destination of it.
    line.frames[place.plan->universes[static_cast<std::size_t>(place.index)]] = levels_of(packet);
    const auto stream = std::ranges::find(step_.streams, place.plan->id, &StreamExpectation::playlist);
    if (stream != step_.streams.end() && !in_order) {
        ++streams_[static_cast<std::size_t>(stream - step_.streams.begin())].misplaced;
    }
    if (marked() && std::ranges::find(step_.destinations, line.destination) == step_.destinations.end()) {
        ++strays_;
    }
}

bool StepJudge::marked() const {
    return marked_.size() == step_.destinations.size();
}

bool StepJudge::complete() const {
    for (std::size_t i = 0; i < streams_.size(); ++i) {
        const auto wanted = static_cast<std::size_t>(step_.streams[i].frames);
        const auto has_all = [wanted](const UniverseMeasurement& u) { return u.arrivals.size() >= wanted; };
        if (!std::ranges::all_of(streams_[i].universes, has_all)) {
            return false;
        }
    }
    return true;
}

StepJudge::Place StepJudge::place_of(const std::vector<std::uint8_t>& packet) {
    if (packet.size() != kPacketSize) {
        return {};
    }
    const int universe = packet[kUniverseAt] | packet[kUniverseAt + 1] << 8;
    for (const PlaylistPlan& plan : playlists()) {
        const auto found = std::ranges::find(plan.universes, universe);
        const int frame = packet[kSequenceAt] - plan.first_sequence;
        if (found != plan.universes.end() && frame >= 0 && frame < plan.frames) {
            return {&plan, frame, static_cast<int>(found - plan.universes.begin())};
        }
    }
    return {};
}

void StepJudge::take_mark(const Mark& mark, const std::string& line) {
    // Marks of earlier rounds may still be on their way.
    if (mark.round != round_ || mark.destination >= step_.destinations.size() ||
        std::ranges::find(marked_, line) != marked_.end()) {
        return;
    }
    book_.lines[line].destination = step_.destinations[mark.destination];
    marked_.push_back(line);
}

bool StepJudge::follow(LineBook::Line& line, const Place& place) const {
    const int universes = static_cast<int>(place.plan->universes.size());
    const int position = place.frame * universes + place.index;
    const auto [last, first_seen] = line.positions.try_emplace(place.plan->id, position);
    if (first_seen) {
        return true;
    }
    const int due = (last->second + 1) % (place.plan->frames * universes);
    last->second = position;
    return position == due;
}

void StepJudge::judge(LineBook::Line& line, const Place& place, const ReceivedPacket& packet, bool in_order) {
    const auto expected = std::ranges::find(step_.streams, place.plan->id, &StreamExpectation::playlist);
    if (expected == step_.streams.end() ||
        std::ranges::find(expected->destinations, line.destination) == expected->destinations.end()) {
        ++strays_;
        return;
    }
    StreamMeasurement& stream = streams_[static_cast<std::size_t>(expected - step_.streams.begin())];
    const auto index = static_cast<std::size_t>(place.index);
    const int universe = place.plan->universes[index];
    const Levels& written =
        expected->levels[static_cast<std::size_t>(place.frame) * place.plan->universes.size() + index];
    const Levels received = levels_of(packet);
    Levels& frame = line.frames[universe];
    for (std::size_t channel = 0; channel < frame.size(); ++channel) {
        if (expected->owned[index].test(channel)) {
            frame[channel] = written[channel];
            stream.peak = std::max(stream.peak, int{received[channel]});
        }
    }
    const auto header = dmx_header(place.plan->first_sequence + place.frame, universe);
    stream.misplaced += in_order ? 0 : 1;
    stream.wrong +=
        frame == received && std::ranges::equal(std::span(packet.bytes).first<kDmxHeader>(), header) ? 0 : 1;
    measure(stream, line, place, packet);
}

void StepJudge::measure(StreamMeasurement& stream, const LineBook::Line& line, const Place& place,
                        const ReceivedPacket& packet) {
    const StreamExpectation& expected = step_.streams[static_cast<std::size_t>(&stream - streams_.data())];
    const int universe = place.plan->universes[static_cast<std::size_t>(place.index)];
    const auto is_it = [&](const UniverseMeasurement& u) {
        return u.destination == line.destination && u.universe == universe;
    };
    const auto found = std::ranges::find_if(stream.universes, is_it);
    // A mark may fall into a frame; the count begins with a whole one.
    const bool begun =
        place.index == 0 || (found != stream.universes.begin() && !std::prev(found)->arrivals.empty());
    found->levels = levels_of(packet);
    // A loop goes on while the other streams come to their end; what has no end of its own is cut here.
    const bool full = place.plan->loop && static_cast<int>(found->arrivals.size()) >= expected.frames;
    if (begun && !full) {
        found->arrivals.push_back(packet.time);
        ++stream.packets;
    }
}

}  // namespace demo
