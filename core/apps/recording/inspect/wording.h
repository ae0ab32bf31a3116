#pragma once
// Numbers in sentences.

#include <chrono>
#include <cstdio>
#include <string>

#include "cli/wording.h"

namespace inspect {

using cli::counted;

/// "12.5 ms", "3.2 s": a time as a reader would write it.
[[nodiscard]] inline std::string time_text(std::chrono::nanoseconds time) {
    char text[64];
    const auto nanoseconds = static_cast<double>(time.count());
    if (time < std::chrono::seconds(1)) {
        std::snprintf(text, sizeof text, "%.6g ms", nanoseconds / 1e6);
    } else {
        std::snprintf(text, sizeof text, "%.10g s", nanoseconds / 1e9);
    }
    return text;
}

}  // namespace inspect
