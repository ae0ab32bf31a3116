#include "watch_output.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

#include "text.h"

namespace forwarder {

namespace {

// Second screen on and off; cursor hidden and shown; to the top left; erase to the end of the line, of the
// screen.
constexpr const char* kEnter = "\x1b[?1049h\x1b[?25l";
constexpr const char* kLeave = "\x1b[?25h\x1b[?1049l";
constexpr const char* kHome = "\x1b[H";
constexpr const char* kEraseLine = "\x1b[K";
constexpr const char* kEraseBelow = "\x1b[J";

/// True when the environment names a UTF-8 locale; the first of the three that is set decides.
bool terminal_speaks_utf8() {
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            return std::strstr(value, "UTF-8") != nullptr || std::strstr(value, "utf8") != nullptr;
        }
    }
    return false;
}

ScreenSize screen_size() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
        return {};
    }
    return {size.ws_col, size.ws_row};
}

}  // namespace

void print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

WatchOutput::WatchOutput(bool json)
    : json_(json),
      terminal_(!json && isatty(STDOUT_FILENO) == 1),
      glyphs_(terminal_speaks_utf8() ? Glyphs::Blocks : Glyphs::Ascii) {}

WatchOutput::~WatchOutput() {
    leave_screen();
}

std::chrono::milliseconds WatchOutput::period() const noexcept {
    return std::chrono::milliseconds{terminal_ ? 250 : 1000};
}

void WatchOutput::show(const WatchStatistics& statistics, const Report& report) {
    const std::vector<WatchRow> rows = statistics.rows(WatchStatistics::Clock::now());
    if (json_) {
        print(to_json(rows));
        return;
    }
    if (!terminal_) {
        std::string lines;
        for (const WatchRow& row : rows) {
            lines += to_plain_line(row);
        }
        print(lines);
        return;
    }
    const std::string heading = text("received %llu  rejected %llu  dropped by kernel %llu  (Ctrl-C ends)",
                                     static_cast<unsigned long long>(report.received()),
                                     static_cast<unsigned long long>(report.rejected_in_all()),
                                     static_cast<unsigned long long>(report.kernel_drops()));
    std::string screen = on_screen_ ? kHome : std::string(kEnter) + kHome;
    on_screen_ = true;
    for (const char letter :
         to_screen(heading, rows, statistics.frames_beyond_limit(), screen_size(), glyphs_)) {
        if (letter == '\n') {
            screen += kEraseLine;
            screen += '\r';
        }
        screen += letter;
    }
    print(screen + kEraseBelow);
}

void WatchOutput::leave_screen() {
    if (on_screen_) {
        on_screen_ = false;
        print(kLeave);
    }
}

}  // namespace forwarder
