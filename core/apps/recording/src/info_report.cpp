#include "info_report.h"

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include <nlohmann/json.hpp>

#include "artnet/opcodes.h"
#include "artnet/recording_timing.h"
#include "cli/value_text.h"

namespace recording {

namespace {

using Json = nlohmann::ordered_json;

__attribute__((format(printf, 1, 2))) std::string text(const char* format, ...) {
    std::array<char, 512> line{};
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line.data(), line.size(), format, arguments);
    va_end(arguments);
    return line.data();
}

std::string milliseconds(std::chrono::nanoseconds time) {
    return text("%.6g ms", static_cast<double>(time.count()) / 1e6);
}

std::string rate_text(const std::optional<double>& rate) {
    return rate ? text("%.5g", *rate) : "-";
}

std::string type_name(std::uint16_t code) {
    const std::string_view name = opcode::name(code);
    return name.empty() ? text("0x%04x", unsigned{code}) : std::string(name);
}

std::string channels_text(const UniverseStatistics& universe) {
    return universe.fewest_channels == universe.most_channels
               ? text("%u", unsigned{universe.most_channels})
               : text("%u-%u", unsigned{universe.fewest_channels}, unsigned{universe.most_channels});
}

std::string interval_text(Intervals& intervals) {
    if (intervals.empty()) {
        return "-";
    }
    return "p50 " + milliseconds(intervals.percentile(0.5)) + ", p99 " +
           milliseconds(intervals.percentile(0.99)) + ", max " + milliseconds(intervals.longest());
}

std::string last_frame_text(const std::optional<std::uint64_t>& written) {
    std::string line = "always stands " + milliseconds(kLastFrameTime) + " when played";
    if (written) {
        line += text("; its timing packet says %.6g ms", static_cast<double>(*written) / 1e6);
    }
    return line;
}

std::string types_text(const RecordingStatistics& statistics) {
    std::string line;
    for (const auto& [code, count] : statistics.types) {
        line += text("%s%llu %s", line.empty() ? "" : ", ", static_cast<unsigned long long>(count),
                     type_name(code).c_str());
    }
    if (statistics.oversized != 0) {
        line += text("%s%llu ArtDmx left out for more than 512 channels", line.empty() ? "" : ", ",
                     static_cast<unsigned long long>(statistics.oversized));
    }
    return line;
}

Json interval_json(Intervals& intervals) {
    if (intervals.empty()) {
        return nullptr;
    }
    return {{"p50_ns", intervals.percentile(0.5).count()},
            {"p99_ns", intervals.percentile(0.99).count()},
            {"max_ns", intervals.longest().count()}};
}

Json rate_json(const std::optional<double>& rate) {
    return rate ? Json(*rate) : Json(nullptr);
}

}  // namespace

std::string info_text(InfoReport& report) {
    RecordingStatistics& statistics = report.statistics;
    std::string out = report.path + "\n";
    out += text("  size        %llu bytes", static_cast<unsigned long long>(statistics.bytes));
    if (const std::optional<double> rate = statistics.byte_rate()) {
        out += text(", %.0f a second of playing time", *rate);
    }
    out += "\n";
    out += "  duration    " + cli::time_text(statistics.duration);
    if (report.speed_boost) {
        out += text(", at a speed boost of %d: ", *report.speed_boost) +
               cli::time_text(*statistics.boosted_duration);
    }
    out += "\n";
    if (statistics.timing_packets() == 0) {
        out += "  frames      not timed: playable at a fixed rate\n";
    } else {
        out += text("  frames      %llu, %s a second\n", static_cast<unsigned long long>(statistics.frames),
                    rate_text(statistics.rate()).c_str());
        out += "  intervals   " + interval_text(statistics.intervals) + "\n";
    }
    out += "  last frame  " + last_frame_text(statistics.last_frame_written) + "\n";
    out += "  packets     " + types_text(statistics) + "\n";
    if (statistics.stale != 0) {
        out += text("  repeated    %llu of the ArtDmx, by an incomplete last block\n",
                    static_cast<unsigned long long>(statistics.stale));
    }
    out += "  universe   packets  channels  a second  intervals\n";
    for (auto& [number, universe] : statistics.universes) {
        out += text("  %8u  %8llu  %8s  %8s  ", unsigned{number},
                    static_cast<unsigned long long>(universe.packets), channels_text(universe).c_str(),
                    rate_text(universe.rate()).c_str()) +
               interval_text(universe.intervals) + "\n";
    }
    return out;
}

std::string info_json(InfoReport& report) {
    RecordingStatistics& statistics = report.statistics;
    Json json{{"file", report.path},
              {"bytes", statistics.bytes},
              {"duration_ns", statistics.duration.count()},
              {"bytes_per_second", rate_json(statistics.byte_rate())}};
    if (report.speed_boost) {
        json["speed_boost"] = *report.speed_boost;
        json["duration_at_speed_boost_ns"] = statistics.boosted_duration->count();
    }
    const bool is_timed = statistics.timing_packets() != 0;
    json["timed"] = is_timed;
    json["frames"] = is_timed ? Json(statistics.frames) : Json(nullptr);
    json["frames_per_second"] = rate_json(statistics.rate());
    json["intervals"] = interval_json(statistics.intervals);
    json["last_frame_ns"] = std::chrono::nanoseconds(kLastFrameTime).count();
    json["last_frame_written_ns"] =
        statistics.last_frame_written ? Json(*statistics.last_frame_written) : Json(nullptr);
    Json types = Json::object();
    for (const auto& [code, count] : statistics.types) {
        types[type_name(code)] = count;
    }
    json["packets"] = types;
    json["oversized"] = statistics.oversized;
    json["repeated"] = statistics.stale;
    Json universes = Json::array();
    for (auto& [number, universe] : statistics.universes) {
        universes.push_back({{"universe", number},
                             {"packets", universe.packets},
                             {"fewest_channels", universe.fewest_channels},
                             {"most_channels", universe.most_channels},
                             {"packets_per_second", rate_json(universe.rate())},
                             {"intervals", interval_json(universe.intervals)}});
    }
    json["universes"] = universes;
    // What is no UTF-8 in a path must not end the report.
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace recording
