#pragma once
// What the newcomer reads.

#include <span>
#include <string>

#include "expectation.h"
#include "step_judge.h"

namespace demo {

/// Channels that are shown as bars.
inline constexpr std::size_t kShownChannels = 32;

/// One character a channel; `utf8` permits block characters, otherwise letters of growing weight.
[[nodiscard]] std::string bars(std::span<const std::uint8_t> levels, bool utf8);

/// Column heads of table_of(), with a line feed.
[[nodiscard]] std::string table_head();

/// What a step's packets look like so far; without heads when the step is to be shown briefly.
[[nodiscard]] std::string table_of(const StepExpectation& step, const StepJudge& judge, bool utf8);

/**
 * The recorded levels of the step's playlists on universe 0 and what becomes of them.
 *
 * Empty unless the chase just crosses the border of the pulse's zone, where there is most to be seen.
 */
[[nodiscard]] std::string merge_picture(const StepExpectation& step, const LineBook& book, bool utf8);

/// Standard output: plain lines, or, in a terminal, a table that is drawn over while it changes.
class Screen {
public:
    Screen();

    [[nodiscard]] bool utf8() const noexcept { return utf8_; }
    /// Bold in a terminal.
    void headline(const std::string& text);
    void say(const std::string& text);
    /// Draws over the last one in a terminal; elsewhere only a final one is printed.
    void table(const std::string& text, bool final);

private:
    bool terminal_;
    bool redraws_ = false;
    bool utf8_;
    /// Lines of the table that stands to be drawn over.
    int drawn_ = 0;
};

}  // namespace demo
