#include "report.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <vector>

#include <nlohmann/json.hpp>

namespace node {

namespace {

using Json = nlohmann::ordered_json;

double microseconds(std::chrono::nanoseconds time) {
    return static_cast<double>(time.count()) / 1000.0;
}

double milliseconds(std::chrono::nanoseconds time) {
    return static_cast<double>(time.count()) / 1e6;
}

Json to_json(const IntervalHistogram& times) {
    return {{"min", microseconds(times.min())},
            {"p50", microseconds(times.quantile(0.5))},
            {"p99", microseconds(times.quantile(0.99))},
            {"max", microseconds(times.max())}};
}

[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...) {
    std::array<char, 512> buffer{};
    std::va_list arguments;
    va_start(arguments, format);
    const int size = std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
    va_end(arguments);
    return {buffer.data(), std::min(static_cast<std::size_t>(size), buffer.size() - 1)};
}

std::string count(std::uint64_t number) {
    return std::to_string(number);
}

std::string universe_line(std::uint16_t universe, const UniverseStatistics& statistics) {
    const IntervalHistogram& intervals = statistics.intervals();
    return text("%8u %9s %7.2f %6s %6s %8s %7zu   %8.3f %8.3f %8.3f %8.3f\n", unsigned{universe},
                count(statistics.packets()).c_str(), statistics.fps(), count(statistics.lost()).c_str(),
                count(statistics.late()).c_str(), count(statistics.repeated()).c_str(), statistics.senders(),
                milliseconds(intervals.min()), milliseconds(intervals.quantile(0.5)),
                milliseconds(intervals.quantile(0.99)), milliseconds(intervals.max()));
}

}  // namespace

std::string to_json(const Node& node, const ReportFrame& frame) {
    const Traffic& traffic = node.traffic();
    Json universes = Json::array();
    for (const auto& [universe, statistics] : node.universes()) {
        universes.push_back(
            {{"universe", universe},
             {"packets", statistics.packets()},
             {"fps", statistics.fps()},
             {"lost", statistics.lost()},
             {"late", statistics.late()},
             {"repeated", statistics.repeated()},
             {"senders", statistics.senders()},
             {"interval_us", to_json(statistics.intervals())},
             {"levels", std::vector<int>(statistics.levels().begin(), statistics.levels().end())}});
    }
    const FrameStatistics& frames = node.frames();
    const Json report = {{"type", "report"},
                         {"name", node.settings().name},
                         {"seconds", frame.time.count()},
                         {"polls", traffic.polls},
                         {"packets", traffic.frames},
                         {"other_universes", traffic.other_universes},
                         {"other_packets", traffic.other_packets},
                         {"malformed", traffic.malformed},
                         {"kernel_drops", frame.kernel_drops},
                         {"universes", universes},
                         {"frames",
                          {{"count", frames.frames()},
                           {"incomplete", frames.incomplete()},
                           {"syncs", frames.syncs()},
                           {"spread_us", to_json(frames.spread())}}}};
    // A name from the command line need not be UTF-8.
    return report.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string to_table(const Node& node, const ReportFrame& frame) {
    const Traffic& traffic = node.traffic();
    std::string table =
        node.settings().name + text(": %.1f s, %s polls answered, %s packets, %s for other universes, ",
                                    frame.time.count(), count(traffic.polls).c_str(),
                                    count(traffic.frames).c_str(), count(traffic.other_universes).c_str());
    table += text("%s others, %s malformed, %s dropped by the kernel\n", count(traffic.other_packets).c_str(),
                  count(traffic.malformed).c_str(), count(frame.kernel_drops).c_str());
    table +=
        "UNIVERSE   PACKETS     FPS   LOST   LATE REPEATED SENDERS   MIN ms   P50 ms   P99 ms   MAX ms\n";
    for (const auto& [universe, statistics] : node.universes()) {
        table += universe_line(universe, statistics);
    }
    const FrameStatistics& frames = node.frames();
    table +=
        text("frames: %s, incomplete %s; universes of a frame apart p50 %.3f ms, p99 %.3f ms, max %.3f ms\n",
             count(frames.frames()).c_str(), count(frames.incomplete()).c_str(),
             milliseconds(frames.spread().quantile(0.5)), milliseconds(frames.spread().quantile(0.99)),
             milliseconds(frames.spread().max()));
    return table;
}

}  // namespace node
