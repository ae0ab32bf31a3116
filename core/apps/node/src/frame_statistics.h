#pragma once
// Whether the universes of a frame arrive together.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>

#include "interval_histogram.h"
#include "universe_statistics.h"

namespace node {

/**
 * Groups packets into frames and looks for torn ones.
 *
 * A frame ends where a universe comes again and at a pause; where the sender marks frames with ArtSync, only
 * there and where a universe comes again. A frame that lacks a universe that has been seen before is
 * incomplete: part of the rig still showed the frame before. Nothing is said about the first frame, which may
 * have begun before we listened.
 */
class FrameStatistics {
public:
    /// @param gap  a pause between two packets from this length on separates frames
    explicit FrameStatistics(std::chrono::nanoseconds gap) : gap_(gap) {}

    void take_dmx(std::uint16_t universe, Arrival arrival);
    void take_sync(Arrival arrival);

    /// Frames that have ended, without the first.
    [[nodiscard]] std::uint64_t frames() const { return spread_.count(); }
    [[nodiscard]] std::uint64_t incomplete() const { return incomplete_; }
    /// From the first to the last packet of each.
    [[nodiscard]] const IntervalHistogram& spread() const { return spread_; }
    [[nodiscard]] std::uint64_t syncs() const { return syncs_; }

private:
    void end_frame();

    std::chrono::nanoseconds gap_;
    /// Universes of the frame that goes on, and when its first and last packet came.
    std::set<std::uint16_t> frame_;
    Arrival first_{0};
    Arrival latest_{0};
    /// Universes of all frames that have ended.
    std::set<std::uint16_t> known_;
    std::optional<Arrival> last_sync_;
    std::uint64_t syncs_ = 0;
    std::uint64_t incomplete_ = 0;
    IntervalHistogram spread_;
};

}  // namespace node
