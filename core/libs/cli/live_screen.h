#pragma once
// Standard output as a view that is renewed again and again.

#include <chrono>
#include <cstddef>
#include <string>

#include "cli/bars.h"

namespace cli {

/// Size of the terminal, in characters.
struct ScreenSize {
    std::size_t columns = 80;
    std::size_t lines = 24;
};

/**
 * Draws in a terminal, on its second screen, which it owns from the first draw() to leave(). Elsewhere
 * nothing can be drawn, and text is to be printed instead. One thread.
 */
class LiveScreen {
public:
    /// @param wanted  false: nothing is to be drawn, even in a terminal
    explicit LiveScreen(bool wanted);
    /// Gives the terminal back.
    ~LiveScreen();
    LiveScreen(const LiveScreen&) = delete;
    LiveScreen& operator=(const LiveScreen&) = delete;

    /// Whether draw() may be called.
    [[nodiscard]] bool can_draw() const noexcept { return can_draw_; }
    /// Time between two views, drawn or printed.
    [[nodiscard]] std::chrono::milliseconds period() const noexcept;
    /// The terminal's at this moment; a common one where it is not known.
    [[nodiscard]] ScreenSize size() const noexcept;
    /// What the environment's locale has signs for.
    [[nodiscard]] Glyphs glyphs() const noexcept { return glyphs_; }

    /// Draws over what was drawn before.
    /// @param screen  lines that end in line feeds; fewer than the screen has, and not wider
    void draw(const std::string& screen);
    /// Returns to the first screen, so that text printed next stays there.
    void leave();

private:
    bool can_draw_;
    bool on_screen_ = false;
    Glyphs glyphs_;
};

/// Writes all of `text` to standard output at once; a closed reader is no reason to stop.
void print(const std::string& text);

}  // namespace cli
