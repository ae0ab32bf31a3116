#pragma once
// Says what an author must know of a recording before the service plays it.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "inspect/finding.h"

namespace inspect {

/// How the recording is to be played, as an effects file says it.
struct InspectOptions {
    /// Frames per second; -1: the recording's own timing.
    int fps = -1;
    /// ArtDmx packets per frame, for a fixed rate; -1: found from the recording.
    int ppf = -1;
    /// Whether its first frame follows its last one.
    bool loops = true;
    /// Most findings kept of one kind; 0: all.
    std::size_t per_kind = 10;
};

struct UniverseCount {
    int universe = 0;
    /// ArtDmx packets that play.
    std::uint64_t packets = 0;
};

struct RecordingReport {
    RecordingReport(std::string file, Findings empty) : path(std::move(file)), findings(std::move(empty)) {}

    std::string path;
    std::uint64_t bytes = 0;
    /// False when the load ends with an error: the playlist's later effects are not loaded.
    bool loads = false;
    /// ArtDmx packets that play.
    std::uint64_t packets = 0;
    std::uint64_t frames = 0;
    /// Playing time without a speed boost, the last frame's included.
    std::chrono::nanoseconds duration{0};
    /// What the recording says of its last frame; none when it says nothing.
    std::optional<std::chrono::nanoseconds> last_recorded;
    /// How long the last frame stands.
    std::chrono::nanoseconds last_played{0};
    /// Ascending.
    std::vector<UniverseCount> universes;
    Findings findings;
};

/// Told now and then how much of how much is done; while the total is not known, and 0, of packets loaded.
using ProgressSink = std::function<void(std::uint64_t done, std::uint64_t total)>;

/// Why the file cannot be read as a recording, such as "No such file or directory" or "it is a directory";
/// empty when it can, and then `bytes` is its size. Does not wait for who writes into a FIFO.
[[nodiscard]] std::string why_unreadable(const std::string& path, std::uint64_t& bytes);

/**
 * Loads a recording with the service's PlaylistLoader, parses it with its ArtNetParser and reports what it
 * finds; nothing is sent.
 *
 * Waits for the loader's thread. What cannot be read, or is no regular file, is a finding, too. The whole
 * recording is held in memory, as in the service. The service's log must have been silenced.
 */
[[nodiscard]] RecordingReport inspect_recording(const std::string& path, const InspectOptions& options,
                                                const ProgressSink& progress = {});

/// Turns the service's log lines off: what they say is in the findings. For programs, once.
void silence_service_log();

}  // namespace inspect
