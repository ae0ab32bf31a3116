#include "plot/level_map.h"

#include <algorithm>
#include <map>
#include <utility>

using std::chrono::nanoseconds;

namespace plot {

namespace {

constexpr std::size_t kChannels = 512;

/// Columns of times.
class Columns {
public:
    explicit Columns(const Section& section)
        : from_(section.from),
          columns_(section.columns),
          per_column_(static_cast<double>((section.to - section.from).count()) / section.columns) {}

    /// Column in which a time lies: the first one for what is before the section, the number of columns for
    /// what is behind it. A frame may be as far off as 63 bits of nanoseconds.
    [[nodiscard]] int column(nanoseconds time) const {
        const double position = static_cast<double>((time - from_).count()) / per_column_;
        return static_cast<int>(std::clamp(position, 0.0, static_cast<double>(columns_)));
    }

private:
    nanoseconds from_;
    int columns_;
    double per_column_;
};

/// Fills one universe packet by packet.
class UniverseFill {
public:
    UniverseFill(int universe, const Section& section) : section_(section), columns_(section) {
        map_.universe = universe;
        map_.levels.assign(static_cast<std::size_t>(section.columns) * kChannels, UniverseMap::kNothing);
    }

    /// The next packet, at `time`.
    void take(nanoseconds time, const std::vector<unsigned char>& levels) {
        close(time);
        levels_ = levels;
        since_ = time;
        held_ = true;
    }

    /// Draws what has been held, up to `end`.
    void close(nanoseconds end) {
        // Packets without a channel are never sent.
        if (!held_ || levels_.empty()) {
            return;
        }
        // In this order, since the sum may be beyond what the type holds.
        const nanoseconds until = end - since_ > kHold ? since_ + kHold : end;
        if (until < section_.from || since_ >= section_.to) {
            return;
        }
        seen_ = true;
        map_.channels = std::max(map_.channels, static_cast<int>(levels_.size()));
        const int begin = columns_.column(since_);
        // A packet shows in its own column, however short it stands.
        const int behind = std::min(section_.columns, std::max(begin + 1, columns_.column(until)));
        for (int column = begin; column < behind; ++column) {
            std::int16_t* const cells = &map_.levels[static_cast<std::size_t>(column) * kChannels];
            for (std::size_t channel = 0; channel < std::min(levels_.size(), kChannels); ++channel) {
                cells[channel] = std::max(cells[channel], std::int16_t{levels_[channel]});
            }
        }
    }

    [[nodiscard]] bool seen() const { return seen_; }
    [[nodiscard]] UniverseMap take_map() { return std::move(map_); }

private:
    const Section& section_;
    Columns columns_;
    UniverseMap map_;
    std::vector<unsigned char> levels_;
    nanoseconds since_{0};
    bool held_ = false;
    bool seen_ = false;
};

void fill_intervals(const inspect::Timeline& timeline, const Section& section, LevelMap& map) {
    const Columns columns(section);
    map.intervals.resize(static_cast<std::size_t>(section.columns));
    std::vector<nanoseconds> lengths;
    for (std::size_t frame = 0; frame < timeline.frames(); ++frame) {
        const nanoseconds start = timeline.start(frame);
        const nanoseconds length = timeline.length(frame);
        if (start + length <= section.from || start >= section.to) {
            continue;
        }
        if (start >= section.from) {
            lengths.push_back(length);
        }
        const int begin = columns.column(start);
        const int behind = std::min(section.columns, std::max(begin + 1, columns.column(start + length)));
        for (int column = begin; column < behind; ++column) {
            IntervalColumn& cell = map.intervals[static_cast<std::size_t>(column)];
            cell.shortest = cell.longest.count() == 0 ? length : std::min(cell.shortest, length);
            cell.longest = std::max(cell.longest, length);
        }
    }
    std::sort(lengths.begin(), lengths.end());
    map.frames = lengths.size();
    if (!lengths.empty()) {
        map.median = lengths[(lengths.size() - 1) / 2];
        map.p99 = lengths[(lengths.size() - 1) * 99 / 100];
        map.longest = lengths.back();
    }
}

}  // namespace

LevelMap reduce(inspect::Timeline& timeline, const Section& section,
                const std::function<void(std::uint64_t)>& progress) {
    std::map<int, UniverseFill> fills;
    for (std::size_t packet = 0; packet < timeline.packets(); ++packet) {
        const int universe = timeline.universe(packet);
        const nanoseconds time = timeline.start(timeline.frame_of(packet));
        if (time >= section.to) {
            break;
        }
        if (progress) {
            progress(packet + 1);
        }
        if (!section.universes.empty() && !section.universes.contains(universe)) {
            continue;
        }
        fills.try_emplace(universe, universe, section).first->second.take(time, timeline.levels(packet));
    }
    LevelMap map;
    for (auto& [universe, fill] : fills) {
        fill.close(std::min(section.to, timeline.duration()));
        if (fill.seen()) {
            map.universes.push_back(fill.take_map());
        }
    }
    fill_intervals(timeline, section, map);
    return map;
}

}  // namespace plot
