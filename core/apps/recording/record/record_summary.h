#pragma once
// The summary at the end of a capture, as text and as JSON.

#include <chrono>
#include <cstdint>
#include <string>

#include "record_statistics.h"

namespace recording {

struct RecordSummary {
    std::string path;
    /// In the file, as the two below.
    std::uint64_t bytes = 0;
    std::uint64_t frames = 0;
    /// What the loader makes of it, the last frame's 30 ms included.
    std::chrono::nanoseconds duration{0};
    std::uint64_t kernel_drops = 0;
    /// Borrowed.
    const RecordStatistics& statistics;
    /// Says whether its senders are senders, or destinations.
    capture::Payload payload = capture::Payload::Plain;
};

[[nodiscard]] std::string summary_text(const RecordSummary& summary);
/// One object in one line.
[[nodiscard]] std::string summary_json(const RecordSummary& summary);

/// "universe 3 has two senders, 10.0.0.1:6454 and 10.0.0.2:6454"; of wrapped datagrams "two destinations".
[[nodiscard]] std::string conflict_text(const capture::SenderConflict& conflict, capture::Payload payload);

}  // namespace recording
