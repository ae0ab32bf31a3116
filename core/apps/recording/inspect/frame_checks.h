#pragma once
// What the frames of a recording look like once its packets have their times.

#include <cstdint>
#include <functional>
#include <unordered_set>
#include <vector>

#include "inspect/finding.h"
#include "inspect/inspection.h"
#include "inspect/packet_walk.h"
#include "inspect/timeline.h"

namespace inspect {

/// Looks at lengths of frames, at universes that come twice in one or stop, and at the seam of the loop.
class FrameChecks {
public:
    /// The walk has run over the same recording. All outlive it.
    FrameChecks(Timeline& timeline, const PacketWalk& walk, const InspectOptions& options, Findings& findings)
        : timeline_(timeline), walk_(walk), options_(options), findings_(findings) {}

    /// All of them. Once.
    /// @param progress  told now and then how much of how much is done; may be empty
    void run(const std::function<void(std::uint64_t, std::uint64_t)>& progress);

private:
    /// How the levels of one universe change from packet to packet.
    struct Look;

    /// Offset of every frame's last ArtDmx packet.
    [[nodiscard]] std::vector<std::uint64_t> frame_offsets() const;
    [[nodiscard]] bool fixed_fps() const { return options_.fps != -1; }
    /// True when the recording has more than one look and no time between them.
    bool check_timing();
    void check_lengths();
    void check_rate();
    void check_last_frame();
    void check_repetitions();
    void check_endings();
    void check_seam();

    /// Tells that a check has come to a packet.
    void tick(std::size_t packet);
    void add(const char* kind, Level level, std::size_t packet, std::uint64_t count, std::string text);
    /// Offset of a packet, 0 when the file has changed in between.
    [[nodiscard]] std::uint64_t offset(std::size_t packet) const {
        return packet < walk_.offsets().size() ? walk_.offsets()[packet] : 0;
    }

    Timeline& timeline_;
    const PacketWalk& walk_;
    const InspectOptions& options_;
    Findings& findings_;
    std::function<void(std::uint64_t, std::uint64_t)> progress_;
    /// Checks that have gone through all packets.
    std::uint64_t passes_ = 0;
};

}  // namespace inspect
