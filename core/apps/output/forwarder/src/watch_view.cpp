#include "watch_view.h"

#include <algorithm>

#include "text.h"

namespace forwarder {

namespace {

constexpr std::size_t kPlainLevels = 16;

/// Columns in front of the level bar.
constexpr std::size_t kFiguresWidth = 66;

std::string figures(const WatchRow& row) {
    return text("%8u  %-21s %6.1f %8.2f %8.2f %8.2f  ", row.universe, to_text(row.target).c_str(), row.fps,
                row.interval_p50, row.interval_p99, row.interval_max);
}

}  // namespace

std::string to_plain_line(const WatchRow& row) {
    std::string line =
        text("universe %u to %s: %.1f fps, interval p50 %.2f p99 %.2f max %.2f ms, %llu frames, levels",
             row.universe, to_text(row.target).c_str(), row.fps, row.interval_p50, row.interval_p99,
             row.interval_max, static_cast<unsigned long long>(row.frames));
    for (std::size_t i = 0; i < std::min(row.levels.size(), kPlainLevels); ++i) {
        line += text(" %u", unsigned{row.levels[i]});
    }
    return line + (row.levels.size() > kPlainLevels ? " ...\n" : "\n");
}

std::string to_json(std::span<const WatchRow> rows) {
    std::string list;
    for (const WatchRow& row : rows) {
        std::string levels;
        for (const unsigned char level : row.levels) {
            levels += text("%s%u", levels.empty() ? "" : ",", unsigned{level});
        }
        list += text(
            R"(%s{"universe":%u,"address":"%s","port":%u,"fps":%.3f,"p50_ms":%.3f,"p99_ms":%.3f,"max_ms":%.3f,"frames":%llu,"levels":[%s]})",
            list.empty() ? "" : ",", row.universe, to_text(row.target.address).c_str(),
            unsigned{row.target.port}, row.fps, row.interval_p50, row.interval_p99, row.interval_max,
            static_cast<unsigned long long>(row.frames), levels.c_str());
    }
    return R"({"type":"watch","universes":[)" + list + "]}\n";
}

std::string to_screen(const std::string& heading, std::span<const WatchRow> rows,
                      std::uint64_t frames_beyond_limit, cli::ScreenSize size, cli::Glyphs glyphs) {
    constexpr std::size_t kLinesAround = 4;  // heading, column names, last line, and the cursor's line
    const std::size_t room = size.lines > kLinesAround ? size.lines - kLinesAround : 0;
    const std::size_t shown = std::min(rows.size(), room);
    const std::size_t bar = size.columns > kFiguresWidth ? size.columns - kFiguresWidth : 0;
    const auto cut = [&size](const std::string& line) { return line.substr(0, size.columns) + "\n"; };

    std::string screen = cut(heading);
    screen += cut("universe  destination              fps   p50 ms   p99 ms   max ms  levels");
    for (const WatchRow& row : rows.first(shown)) {
        std::string line = figures(row).substr(0, size.columns);
        if (bar > 0) {
            line += cli::level_bar(row.levels, bar, glyphs);
        }
        screen += line + "\n";
    }
    if (rows.empty()) {
        screen += cut("no universe seen yet");
    }
    if (shown < rows.size() || frames_beyond_limit > 0) {
        screen += cut(text("%zu more universes below, %llu frames of universes that are not followed",
                           rows.size() - shown, static_cast<unsigned long long>(frames_beyond_limit)));
    }
    return screen;
}

}  // namespace forwarder
