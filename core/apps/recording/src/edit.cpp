#include "edit.h"

#include <algorithm>
#include <map>
#include <unordered_map>

#include "cli/failure.h"

using namespace std::chrono_literals;

namespace recording {

namespace {

constexpr std::uint32_t kLastUniverse = 65535;

EditedPacket edited(const IndexedPacket& packet, std::uint32_t source = 0) {
    return {source, packet.size, packet.universe, packet.offset, packet.begin, packet.ends_frame_of_no_time};
}

void require_times(const RecordingIndex& source) {
    if (!source.has_times) {
        throw cli::Failure(source.path + ": has no timing packets, so that its frames have no times");
    }
}

/// The last packet of each universe, of those in front of `first` whose universe has none at `from`; in the
/// order of the file.
std::vector<EditedPacket> look_before(const std::vector<IndexedPacket>& packets, std::size_t first,
                                      std::chrono::nanoseconds from) {
    std::unordered_map<int, std::size_t> last;
    for (std::size_t index = 0; index < first; ++index) {
        last[packets[index].universe] = index;
    }
    for (std::size_t index = first; index < packets.size() && packets[index].begin == from; ++index) {
        last.erase(packets[index].universe);
    }
    std::vector<std::size_t> kept;
    kept.reserve(last.size());
    for (const auto& [universe, index] : last) {
        kept.push_back(index);
    }
    std::ranges::sort(kept);
    std::vector<EditedPacket> look;
    look.reserve(kept.size());
    for (const std::size_t index : kept) {
        look.push_back(edited(packets[index]));
        look.back().begin = 0ns;
        // One frame, whatever parted its packets.
        look.back().ends_frame_of_no_time = false;
    }
    return look;
}

std::string range_text(const cli::NumberRange& range) {
    return range.first == range.last ? std::to_string(range.first)
                                     : std::to_string(range.first) + "-" + std::to_string(range.last);
}

}  // namespace

EditedRecording cut_recording(const RecordingIndex& source, std::chrono::nanoseconds from,
                              std::chrono::nanoseconds to) {
    require_times(source);
    if (from >= source.end) {
        throw cli::Failure(source.path + ": ends at " + cli::time_text(source.end) +
                           ", where nothing is left to cut from " + cli::time_text(from) + " on");
    }
    const std::vector<IndexedPacket>& packets = source.packets;
    const auto first = static_cast<std::size_t>(
        std::ranges::lower_bound(packets, from, {}, &IndexedPacket::begin) - packets.begin());
    EditedRecording result{look_before(packets, first, from), std::min(to, source.end) - from};
    for (std::size_t index = first; index < packets.size() && packets[index].begin < to; ++index) {
        result.packets.push_back(edited(packets[index]));
        result.packets.back().begin -= from;
    }
    return result;
}

EditedRecording merge_recordings(const std::vector<RecordingIndex>& sources) {
    std::unordered_map<int, std::uint32_t> owners;
    EditedRecording result;
    for (std::uint32_t number = 0; number < sources.size(); ++number) {
        const RecordingIndex& source = sources[number];
        require_times(source);
        for (const IndexedPacket& packet : source.packets) {
            const std::uint32_t owner = owners.try_emplace(packet.universe, number).first->second;
            if (owner != number) {
                throw cli::Failure("universe " + std::to_string(packet.universe) + " is both in " +
                                   sources[owner].path + " and in " + source.path);
            }
            result.packets.push_back(edited(packet, number));
        }
        result.end = std::max(result.end, source.end);
    }
    std::ranges::stable_sort(result.packets, {}, &EditedPacket::begin);
    return result;
}

Renumbering parse_renumbering(const std::string& text) {
    const auto refuse = [&text](const std::string& reason) {
        throw cli::UsageError(text + ": expected FROM=TO, for example 3=7 or 0-3=10-13" + reason);
    };
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
        refuse("");
    }
    const auto from = cli::parse_ranges(text + ":", text.substr(0, equals), kLastUniverse);
    const auto to = cli::parse_ranges(text + ":", text.substr(equals + 1), kLastUniverse);
    if (from.size() != 1 || to.size() != 1) {
        refuse("; one range at a time");
    }
    if (from[0].last - from[0].first != to[0].last - to[0].first) {
        refuse("; the ranges have different lengths");
    }
    return {from[0], to[0].first};
}

EditedRecording remap_recording(const RecordingIndex& source, const std::vector<Renumbering>& rules) {
    std::map<std::uint32_t, std::uint32_t> numbers;
    for (const IndexedPacket& packet : source.packets) {
        numbers[packet.universe] = packet.universe;
    }
    for (const Renumbering& rule : rules) {
        const auto begin = numbers.lower_bound(rule.from.first);
        const auto end = numbers.upper_bound(rule.from.last);
        if (begin == end) {
            throw cli::Failure(source.path + ": has no universe " + range_text(rule.from));
        }
        for (auto entry = begin; entry != end; ++entry) {
            if (entry->second != entry->first) {
                throw cli::UsageError("universe " + std::to_string(entry->first) + " is renumbered twice");
            }
            entry->second = rule.to + (entry->first - rule.from.first);
        }
    }
    std::map<std::uint32_t, std::uint32_t> origins;
    for (const auto& [from, to] : numbers) {
        const auto [other, is_new] = origins.try_emplace(to, from);
        if (!is_new) {
            throw cli::Failure(source.path + ": universes " + std::to_string(other->second) + " and " +
                               std::to_string(from) + " would both become " + std::to_string(to));
        }
    }
    EditedRecording result;
    // One that is played at a fixed rate stays without timing.
    result.end = source.is_timed ? source.end : 0ns;
    result.packets.reserve(source.packets.size());
    for (const IndexedPacket& packet : source.packets) {
        result.packets.push_back(edited(packet));
        result.packets.back().universe = static_cast<std::uint16_t>(numbers[packet.universe]);
    }
    return result;
}

}  // namespace recording
