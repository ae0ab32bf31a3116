#include "written_summary.h"

#include <cstdio>

#include <nlohmann/json.hpp>

#include "artnet/recording_timing.h"
#include "cli/value_text.h"
#include "cli/wording.h"

namespace recording {

using cli::counted;

std::string written_text(const WrittenSummary& summary, Counting counting) {
    const bool by_frames = counting == Counting::Frames && summary.frames;
    return summary.path + ": " +
           (by_frames ? counted(*summary.frames, "frame") : counted(summary.packets, "packet")) + " of " +
           counted(summary.universes.size(), "universe") + ", " + cli::time_text(summary.duration) +
           ", of which the last frame stands " + std::to_string(kLastFrameTime.count()) + " ms\n";
}

std::string written_json(const WrittenSummary& summary) {
    using Json = nlohmann::ordered_json;
    const Json object{{"file", summary.path},
                      {"bytes", summary.bytes},
                      {"packets", summary.packets},
                      {"frames", summary.frames ? Json(*summary.frames) : Json(nullptr)},
                      {"universes", summary.universes},
                      {"duration_ns", summary.duration.count()},
                      {"last_frame_ns", std::chrono::nanoseconds(kLastFrameTime).count()},
                      {"left_out", {{"repeated", summary.repeated}, {"passed_over", summary.passed_over}}}};
    // A file name need not be UTF-8.
    return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

void print_written(const WrittenSummary& summary, Counting counting, bool json) {
    if (json) {
        std::fputs(written_json(summary).c_str(), stdout);
    } else if (!summary.is_special) {
        // What is special may well be standard output itself.
        std::fputs(written_text(summary, counting).c_str(), stdout);
    }
}

}  // namespace recording
