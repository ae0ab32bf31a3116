#pragma once
// Every universe of every sender: rate, intervals, sequence, conflicts, levels.

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "capture/arrival.h"
#include "capture/sender_watch.h"
#include "capture/sequence_counter.h"
#include "interval_window.h"

namespace monitor {

/// What is shown of one stream.
struct StreamRow {
    std::uint16_t universe = 0;
    /// Its sender; with wrapped datagrams its destination.
    capture::Endpoint peer;
    IntervalFigures intervals;
    /// Since the start.
    std::uint64_t packets = 0;
    capture::SequenceCounter sequence;
    /// Whether another sender has driven the universe meanwhile, in the last two seconds.
    bool conflict = false;
    std::vector<unsigned char> levels;
};

/// Datagrams since the start that belong to no stream.
struct OtherDatagrams {
    std::uint64_t other_artnet = 0;
    std::uint64_t malformed = 0;
    std::uint64_t not_artnet = 0;
    /// ArtDmx of streams beyond the limit.
    std::uint64_t beyond_limit = 0;
};

/// One thread.
class StreamTable {
public:
    static constexpr std::size_t kMostStreams = 1024;

    /// @param conflicts  whether two peers of a universe contend; two destinations do not
    explicit StreamTable(bool conflicts) : conflicts_(conflicts) {}

    void add(const capture::Arrival& arrival);
    /// By universe, then by peer.
    [[nodiscard]] std::vector<StreamRow> rows(std::chrono::nanoseconds now) const;
    [[nodiscard]] const OtherDatagrams& others() const noexcept { return others_; }

private:
    struct Stream {
        IntervalWindow times;
        capture::SequenceCounter sequence;
        std::array<unsigned char, 512> levels{};
        std::size_t level_count = 0;
    };
    using Key = std::pair<std::uint16_t, capture::Endpoint>;

    void add_dmx(const capture::Arrival& arrival);

    bool conflicts_;
    std::map<Key, std::unique_ptr<Stream>> streams_;
    capture::SenderWatch senders_;
    OtherDatagrams others_;
};

}  // namespace monitor
