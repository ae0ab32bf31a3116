#include "cli/live_screen.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

namespace cli {

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
        const char* const value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            const std::string_view text = value;
            return text.find("UTF-8") != std::string_view::npos ||
                   text.find("utf8") != std::string_view::npos;
        }
    }
    return false;
}

}  // namespace

LiveScreen::LiveScreen(bool wanted)
    : can_draw_(wanted && isatty(STDOUT_FILENO) == 1),
      glyphs_(terminal_speaks_utf8() ? Glyphs::Blocks : Glyphs::Ascii) {}

LiveScreen::~LiveScreen() {
    leave();
}

std::chrono::milliseconds LiveScreen::period() const noexcept {
    return std::chrono::milliseconds{can_draw_ ? 250 : 1000};
}

ScreenSize LiveScreen::size() const noexcept {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
        return {};
    }
    return {size.ws_col, size.ws_row};
}

void LiveScreen::draw(const std::string& screen) {
    std::string codes = on_screen_ ? kHome : std::string(kEnter) + kHome;
    on_screen_ = true;
    for (const char letter : screen) {
        if (letter == '\n') {
            codes += kEraseLine;
            codes += '\r';
        }
        codes += letter;
    }
    print(codes + kEraseBelow);
}

void LiveScreen::leave() {
    if (on_screen_) {
        on_screen_ = false;
        print(kLeave);
    }
}

void print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

}  // namespace cli
