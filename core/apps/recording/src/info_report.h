#pragma once
// What "info" prints.

#include <optional>
#include <string>

#include "statistics.h"

namespace recording {

/// What was asked about a recording, and the answer. The intervals are sorted by asking for percentiles.
struct InfoReport {
    std::string path;
    std::optional<int> speed_boost;
    RecordingStatistics statistics;
};

/// Lines for a reader.
[[nodiscard]] std::string info_text(InfoReport& report);

/// A JSON object; times are whole nanoseconds.
[[nodiscard]] std::string info_json(InfoReport& report);

}  // namespace recording
