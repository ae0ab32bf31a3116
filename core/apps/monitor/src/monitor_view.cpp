#include "monitor_view.h"

#include <algorithm>
#include <iomanip>
#include <ios>
#include <sstream>

namespace monitor {

namespace {

constexpr std::size_t kPlainLevels = 16;

/// Columns in front of the histogram, of it, and of the counts behind it.
constexpr std::size_t kFiguresWidth = 61;
constexpr std::size_t kHistogramWidth = IntervalFigures::kBounds.size() + 1;
constexpr std::size_t kCountsWidth = 24;
constexpr std::size_t kBarBegin = kFiguresWidth + kHistogramWidth + kCountsWidth;

/// "!" marks a universe with two senders.
std::string figures(const StreamRow& row) {
    std::ostringstream out;
    out << std::fixed << std::setw(8) << row.universe << (row.conflict ? '!' : ' ') << ' ' << std::left
        << std::setw(22) << capture::endpoint_text(row.peer) << std::right << std::setprecision(1)
        << std::setw(6) << row.intervals.fps << std::setprecision(2) << std::setw(7) << row.intervals.p50
        << std::setw(7) << row.intervals.p99 << std::setw(8) << row.intervals.max << ' ';
    return out.str();
}

std::string counts(const StreamRow& row) {
    std::ostringstream out;
    out << std::setw(8) << row.sequence.lost() << std::setw(7) << row.sequence.late() << std::setw(7)
        << row.sequence.repeated() << "  ";
    return out.str();
}

std::string heading(const Snapshot& snapshot) {
    std::ostringstream out;
    out << snapshot.rows.size() << " streams  malformed " << snapshot.others.malformed << "  no Art-Net "
        << snapshot.others.not_artnet << "  dropped by kernel " << snapshot.kernel_drops;
    if (snapshot.comparison != nullptr) {
        out << "  compared " << snapshot.comparison->matched << "  missing " << snapshot.comparison->missing
            << "  extra " << snapshot.comparison->extra;
    }
    out << "  (Ctrl-C ends)";
    return out.str();
}

}  // namespace

std::string to_screen(const Snapshot& snapshot, cli::ScreenSize size, cli::Glyphs glyphs) {
    constexpr std::size_t kLinesAround =
        5;  // heading, column names, what is below, legend, the cursor's line
    const std::size_t room = size.lines > kLinesAround ? size.lines - kLinesAround : 0;
    const std::size_t shown = std::min(snapshot.rows.size(), room);
    const std::size_t bar = size.columns > kBarBegin ? size.columns - kBarBegin : 0;
    const auto cut = [&size](const std::string& line) { return line.substr(0, size.columns) + "\n"; };

    std::string screen = cut(heading(snapshot));
    screen += cut(std::string("universe  ") + (snapshot.wrapped ? "destination" : "source     ") +
                  "              fps p50 ms p99 ms  max ms intervals        lost   late repeat  levels");
    for (const StreamRow& row : snapshot.rows.first(shown)) {
        // Only whole parts, so that no sign of several bytes is cut.
        std::string line = figures(row).substr(0, size.columns);
        if (size.columns >= kFiguresWidth + kHistogramWidth) {
            line += cli::histogram_bar(row.intervals.histogram, glyphs);
            line += counts(row).substr(0, size.columns - kFiguresWidth - kHistogramWidth);
        }
        if (bar > 0) {
            line += cli::level_bar(row.levels, bar, glyphs);
        }
        screen += line + "\n";
    }
    if (snapshot.rows.empty()) {
        screen += cut("no ArtDmx seen yet");
    }
    if (shown < snapshot.rows.size() || snapshot.others.beyond_limit > 0) {
        screen +=
            cut(std::to_string(snapshot.rows.size() - shown) + " more streams below, " +
                std::to_string(snapshot.others.beyond_limit) + " packets of streams that are not followed");
    }
    screen += cut("intervals up to 1 2 5 10 15 20 22 24 26 30 45 100 ms and more; ! two senders");
    return screen;
}

std::string to_lines(const Snapshot& snapshot) {
    std::ostringstream out;
    out << std::fixed;
    for (const StreamRow& row : snapshot.rows) {
        out << "universe " << row.universe << (snapshot.wrapped ? " to " : " from ")
            << capture::endpoint_text(row.peer) << ": " << std::setprecision(1) << row.intervals.fps
            << " fps, interval p50 " << std::setprecision(2) << row.intervals.p50 << " p99 "
            << row.intervals.p99 << " max " << row.intervals.max << " worst " << row.intervals.worst
            << " ms, " << row.packets << " packets, lost " << row.sequence.lost() << " late "
            << row.sequence.late() << " repeated " << row.sequence.repeated()
            << (row.conflict ? ", TWO SENDERS" : "") << ", levels";
        for (std::size_t i = 0; i < std::min(row.levels.size(), kPlainLevels); ++i) {
            out << ' ' << unsigned{row.levels[i]};
        }
        out << (row.levels.size() > kPlainLevels ? " ...\n" : "\n");
    }
    return out.str();
}

}  // namespace monitor
