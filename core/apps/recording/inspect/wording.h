#pragma once
// Numbers in sentences.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

namespace inspect {

/// "1 frame", "2 frames".
[[nodiscard]] inline std::string counted(std::uint64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

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
