#pragma once
// Finds out which packets of a capture belong together.

#include <bitset>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

namespace recording {

/// What ended a frame.
enum class FrameEnd {
    Sync,        ///< the sender's ArtSync
    Repetition,  ///< a universe that it already had
    Gap,         ///< a packet that came too late to belong to it
    Finish       ///< the end of the capture
};

/// Packets that are played back to back.
struct Frame {
    /// When its first packet came.
    std::chrono::nanoseconds time{0};
    /// From its first packet to that of the next frame, not negative; nothing when none follows.
    std::optional<std::chrono::nanoseconds> delay;
    FrameEnd end = FrameEnd::Finish;
    /// ArtDmx packets one after another, as they came.
    std::vector<unsigned char> packets;
    std::size_t packet_count = 0;
};

/// One ArtDmx packet of the capture.
struct CapturedDmx {
    std::chrono::nanoseconds time{0};
    /// Sender's address; its port plays no part, since ArtSync may come from another.
    std::uint32_t sender = 0;
    std::uint16_t universe = 0;
    /// 18 bytes and the levels.
    std::span<const unsigned char> bytes;
};

/**
 * Groups packets into frames.
 *
 * A sender's ArtSync ends the frame that it has packets in. For four seconds after one the sender counts as
 * synchronised, and may then spread its packets over the frame's whole time. For all others a frame also ends
 * with a gap between two packets. A universe never stands twice in one frame: an ArtSync may have been lost,
 * and so the time between the two is kept.
 *
 * Where the grouping errs, it loses a frame's unity but hardly its timing: every frame keeps the time at
 * which its first packet came. One thread; no clock of its own.
 */
class FrameGrouper {
public:
    /// For so long after its last ArtSync a sender is taken for synchronised.
    static constexpr std::chrono::seconds kSyncHolds{4};

    /// @param gap  longest time between two packets of a frame
    explicit FrameGrouper(std::chrono::nanoseconds gap) : gap_(gap) {}

    /// Takes in a packet; the frame before it, once the packet shows that it is whole and how long it stood.
    std::optional<Frame> add(const CapturedDmx& packet);
    /// Takes in an ArtSync.
    void sync(std::uint32_t sender, std::chrono::nanoseconds time);
    /// The last frame, if there is one. Nothing may be added afterwards.
    std::optional<Frame> finish();

private:
    [[nodiscard]] std::optional<FrameEnd> end_before(const CapturedDmx& packet) const;
    [[nodiscard]] bool is_synchronised(std::uint32_t sender, std::chrono::nanoseconds time) const;
    void begin(std::chrono::nanoseconds time);
    void append(const CapturedDmx& packet);

    std::chrono::nanoseconds gap_;
    /// Empty as long as there are no packets.
    Frame frame_;
    /// Whether an ArtSync has ended frame_; the next packet tells how long it stood.
    bool closed_ = false;
    /// When the latest packet of frame_ came.
    std::chrono::nanoseconds latest_{0};
    /// Those with packets in frame_.
    std::vector<std::uint32_t> senders_;
    std::vector<std::uint16_t> universes_;
    std::bitset<65536> has_universe_;
    /// Sender to its last ArtSync.
    std::map<std::uint32_t, std::chrono::nanoseconds> syncs_;
};

}  // namespace recording
