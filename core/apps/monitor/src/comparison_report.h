#pragma once
// What a comparison has found, as text and as JSON.

#include <string>

#include "comparison.h"
#include "lateness.h"

namespace monitor {

struct ComparisonReport {
    std::string recording;
    int speed_boost = 0;
    ComparisonCounts counts;
    LatenessFigures lateness;
    std::uint64_t kernel_drops = 0;
};

[[nodiscard]] std::string report_text(const ComparisonReport& report);
/// One object in one line.
[[nodiscard]] std::string report_json(const ComparisonReport& report);

}  // namespace monitor
