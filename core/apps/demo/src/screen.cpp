#include "screen.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdio>
#include <cstring>

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "statistics.h"

namespace demo {

namespace {

constexpr std::array<const char*, 9> kBlocks{" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<const char*, 9> kLetters{" ", ".", ":", "-", "=", "+", "*", "#", "@"};

/// First channel of the pulse's zone, and the level of the middle of the chase's comet.
constexpr int kBorderChannel = 8;
constexpr int kCometMiddle = 159;

/// What the longest line and the highest table need.
constexpr int kColumns = 80;
constexpr int kRows = 12;

double milliseconds(std::int64_t nanoseconds) {
    return static_cast<double>(nanoseconds) / 1e6;
}

template <typename... Values>
std::string format(const char* pattern, Values... values) {
    std::array<char, 256> line{};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // every pattern is a literal of this file
    std::snprintf(line.data(), line.size(), pattern, values...);
#pragma GCC diagnostic pop
    return line.data();
}

std::span<const std::uint8_t> shown(const Levels& levels) {
    return std::span(levels).first(kShownChannels);
}

std::string row_of(const UniverseMeasurement& universe, int playlist, bool utf8) {
    const IntervalStatistics intervals = interval_statistics(universe.arrivals);
    return format(" %3d %4d %6zu %7.2f %5.1f %5.1f %6.1f  ", universe.universe, playlist,
                  universe.arrivals.size(), mean_rate(universe.arrivals), milliseconds(intervals.p50),
                  milliseconds(intervals.p99), milliseconds(intervals.max)) +
           bars(shown(universe.levels), utf8) + "\n";
}

}  // namespace

std::string bars(std::span<const std::uint8_t> levels, bool utf8) {
    const auto& signs = utf8 ? kBlocks : kLetters;
    std::string text;
    for (const std::uint8_t level : levels) {
        // Only darkness shows as nothing.
        text += signs[level == 0 ? 0 : 1 + (level - 1) * 8U / 255];
    }
    return text;
}

std::string table_head() {
    return " uni list frames  rate/s   p50   p99 max ms  channels 0 to 31\n";
}

std::string table_of(const StepExpectation& step, const StepJudge& judge, bool utf8) {
    std::string text = step.brief || step.streams.empty() ? "" : table_head();
    std::string destination;
    for (std::size_t i = 0; i < step.streams.size(); ++i) {
        for (const UniverseMeasurement& universe : judge.streams()[i].universes) {
            if (universe.destination != destination && step.streams[i].destinations.size() > 1) {
                text += "  to " + universe.destination + "\n";
            }
            destination = universe.destination;
            text += row_of(universe, step.streams[i].playlist, utf8);
            if (step.brief) {
                return text;
            }
        }
    }
    return text;
}

std::string merge_picture(const StepExpectation& step, const LineBook& book, bool utf8) {
    const LineBook::Line* const line = book.find(kStageOutput);
    if (line == nullptr || !line->frames.contains(0)) {
        return {};
    }
    std::string text;
    std::string owners(kShownChannels, ' ');
    for (const StreamExpectation& stream : step.streams) {
        const PlaylistPlan& plan = playlist(stream.playlist);
        const auto position = line->positions.find(plan.id);
        if (position == line->positions.end()) {
            return {};
        }
        const int frame = position->second / static_cast<int>(plan.universes.size());
        if (plan.id == kChase && plan.level(0, frame, kBorderChannel) != kCometMiddle) {
            return {};
        }
        Levels recorded;
        for (std::size_t channel = 0; channel < recorded.size(); ++channel) {
            recorded[channel] = plan.level(0, frame, static_cast<int>(channel));
            if (channel < owners.size() && stream.owned.front().test(channel)) {
                owners[channel] = static_cast<char>('0' + plan.id);
            }
        }
        text += format("   list %d, recorded: zone %d, priority %d  |", plan.id, plan.zone,
                       zone(plan.zone)->priority) +
                bars(shown(recorded), utf8) + "|\n";
    }
    text += "   what comes out on universe 0          |" + bars(shown(line->frames.at(0)), utf8) + "|\n";
    return text + "   the list that each channel belongs to |" + owners + "|\n";
}

Screen::Screen() : terminal_(isatty(STDOUT_FILENO) == 1) {
    winsize size{};
    // Lines that the terminal breaks cannot be drawn over; a size of 0 is not known.
    redraws_ = terminal_ && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= kColumns &&
               size.ws_row >= kRows;
    std::setlocale(LC_CTYPE, "");
    utf8_ = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

void Screen::headline(const std::string& text) {
    say(terminal_ ? "\n\033[1m" + text + "\033[0m" : "\n" + text);
}

void Screen::say(const std::string& text) {
    drawn_ = 0;
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

void Screen::table(const std::string& text, bool final) {
    if (!redraws_ && !final) {
        return;
    }
    if (drawn_ > 0) {
        std::printf("\033[%dA", drawn_);
    }
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
    drawn_ = final ? 0 : static_cast<int>(std::ranges::count(text, '\n'));
}

}  // namespace demo
