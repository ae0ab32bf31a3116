#pragma once
// Shows --watch on standard output: a live screen in a terminal, lines or JSON elsewhere.

#include <chrono>
#include <string>

#include "report.h"
#include "watch_statistics.h"
#include "watch_view.h"

namespace forwarder {

/// Owns the terminal's second screen while it is shown. Main thread only.
class WatchOutput {
public:
    explicit WatchOutput(bool json);
    /// Gives the terminal back.
    ~WatchOutput();
    WatchOutput(const WatchOutput&) = delete;
    WatchOutput& operator=(const WatchOutput&) = delete;

    /// Time between two calls of show().
    [[nodiscard]] std::chrono::milliseconds period() const noexcept;
    void show(const WatchStatistics& statistics, const Report& report);
    /// Returns to the first screen, so that text printed next stays there.
    void leave_screen();

private:
    bool json_;
    bool terminal_;
    bool on_screen_ = false;
    Glyphs glyphs_;
};

/// Writes all of `text` to standard output; a closed reader is no reason to stop.
void print(const std::string& text);

}  // namespace forwarder
