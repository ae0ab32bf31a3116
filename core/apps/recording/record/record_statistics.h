#pragma once
// What a capture has seen, for its summary.

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "capture/arrival.h"
#include "capture/sender_watch.h"
#include "capture/sequence_counter.h"
#include "frame_grouper.h"

namespace recording {

/// One universe of the capture.
struct UniverseFigures {
    std::uint16_t universe = 0;
    std::uint64_t packets = 0;
    /// Packets a second between the first and the last; 0 for fewer than two.
    double fps = 0;
    /// By the sequence numbers of its senders.
    std::uint64_t lost = 0;
    std::uint64_t late = 0;
    std::uint64_t repeated = 0;
    std::vector<capture::Endpoint> senders;
};

/// Datagrams that are not in the recording, by reason.
struct NotRecorded {
    /// Of other universes or senders than were asked for.
    std::uint64_t filtered = 0;
    /// Art-Net of other types; ArtSync counts here, too, although it has been heeded.
    std::uint64_t other = 0;
    std::uint64_t malformed = 0;
    std::uint64_t not_artnet = 0;
};

/// Counts what is recorded and what is not. One thread.
class RecordStatistics {
public:
    /// A packet that is recorded; the conflict that it shows, once.
    std::optional<capture::SenderConflict> add_recorded(const capture::Arrival& arrival);
    /// A datagram that is not, whatever its kind.
    void add_filtered() noexcept { ++not_recorded_.filtered; }
    void add_unrecorded(artnet::PacketKind kind) noexcept;
    void add_frame(FrameEnd end) noexcept { ++frames_[static_cast<std::size_t>(end)]; }

    [[nodiscard]] std::uint64_t frames() const noexcept;
    [[nodiscard]] std::uint64_t frames_ended_by(FrameEnd end) const noexcept {
        return frames_[static_cast<std::size_t>(end)];
    }
    /// Ascending.
    [[nodiscard]] std::vector<UniverseFigures> universes() const;
    [[nodiscard]] std::vector<capture::SenderConflict> conflicts() const { return senders_.conflicts(); }
    [[nodiscard]] const NotRecorded& not_recorded() const noexcept { return not_recorded_; }

private:
    struct Universe {
        std::uint64_t packets = 0;
        std::chrono::nanoseconds first{0};
        std::chrono::nanoseconds last{0};
        std::map<capture::Endpoint, capture::SequenceCounter> senders;
    };

    std::map<std::uint16_t, Universe> universes_;
    capture::SenderWatch senders_;
    std::array<std::uint64_t, 4> frames_{};
    NotRecorded not_recorded_;
};

}  // namespace recording
