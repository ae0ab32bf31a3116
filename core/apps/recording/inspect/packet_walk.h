#pragma once
// Walks through a recording's bytes with the service's parser and says what lies where, and what is not
// found.

#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "artnet/artnet_parser.h"
#include "inspect/finding.h"
#include "inspect/finding_run.h"
#include "inspect/timeline.h"

namespace inspect {

/**
 * One walk from the first byte to the last, by a parser of its own.
 *
 * Packets are known by their number in the order in which they are delivered, which is the loader's: so a
 * Timeline of the same recording gives their frames.
 */
class PacketWalk {
public:
    /// `timeline` and `findings` outlive it.
    PacketWalk(std::string path, std::uint64_t bytes, const Timeline& timeline, bool fixed_fps,
               Findings& findings);
    PacketWalk(const PacketWalk&) = delete;
    PacketWalk& operator=(const PacketWalk&) = delete;

    /// Walks. False when the parser ends with an error, as the load does then. Once.
    /// @param progress  told now and then how much is done, up to twice the file's size; may be empty
    [[nodiscard]] bool run(const std::function<void(std::uint64_t)>& progress);

    /// Offset of every ArtDmx packet delivered.
    [[nodiscard]] const std::vector<std::uint64_t>& offsets() const noexcept { return offsets_; }
    /// Frames in which a timing packet gives no time.
    [[nodiscard]] const std::unordered_set<std::uint64_t>& untimed_frames() const noexcept {
        return untimed_frames_;
    }
    /// Timing packets that belong to an ArtDmx packet.
    [[nodiscard]] std::uint64_t timings() const noexcept { return timings_; }
    /// What the last timing packet says, if it belongs to the last ArtDmx packet.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> last_timing() const;

private:
    void listen();
    /// A packet of `size` bytes has been found; `what` for messages. Its own findings come after this.
    void take(std::uint64_t size, const std::string& what);
    void take_dmx(const ArtDmx& dmx);
    void take_timing(std::uint64_t nanoseconds);
    void take_oversized();
    void take_unknown(std::uint16_t opcode);
    void take_dropped(std::uint64_t size, const char* name);
    void take_ending(const std::error_code& error);
    /// Looks at the bytes between two packets.
    void look_between(std::uint64_t begin, std::uint64_t end);
    void end_runs();
    void end_zero_run();
    void end_ignored_run();
    void end_odd_run();

    [[nodiscard]] std::uint64_t frame() const;
    [[nodiscard]] std::string read_bytes(std::uint64_t offset, std::size_t count);
    void add(const char* kind, Level level, std::uint64_t offset, std::string text);

    std::string path_;
    std::uint64_t bytes_;
    const Timeline& timeline_;
    bool fixed_fps_;
    Findings& findings_;
    ArtNetParser parser_;
    std::function<void(std::uint64_t)> progress_;
    /// A second view of the file, for what the parser does not hand over.
    std::ifstream bytes_view_;
    /// Every identifier in the file, whatever precedes it, and the first that is not behind us.
    std::vector<std::uint64_t> identifiers_;
    std::size_t next_identifier_ = 0;
    /// End of the packet before.
    std::uint64_t end_ = 0;
    /// Whether what follows the packet before may be its body: it was not read to its end.
    bool open_ended_ = false;
    std::vector<std::uint64_t> offsets_;
    std::unordered_set<std::uint64_t> untimed_frames_;
    std::uint64_t timings_ = 0;
    /// Number of ArtDmx packets when the last timing packet came, and what it said.
    std::uint64_t timed_at_ = 0;
    std::chrono::nanoseconds timing_{0};
    FindingRun stale_run_;
    /// The first packet that repeats.
    std::string stale_what_;
    FindingRun zero_run_;
    FindingRun ignored_run_;
    FindingRun odd_run_;
    bool told_unused_timing_ = false;
};

}  // namespace inspect
