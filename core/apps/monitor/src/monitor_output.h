#pragma once
// Shows what is seen on standard output: a live screen in a terminal, lines or JSON elsewhere.

#include <chrono>
#include <string>

#include "monitor_view.h"

namespace monitor {

/// Owns the terminal's second screen while it is shown. One thread.
class MonitorOutput {
public:
    explicit MonitorOutput(bool json);
    /// Gives the terminal back.
    ~MonitorOutput();
    MonitorOutput(const MonitorOutput&) = delete;
    MonitorOutput& operator=(const MonitorOutput&) = delete;

    /// Time between two calls of show().
    [[nodiscard]] std::chrono::milliseconds period() const noexcept;
    void show(const Snapshot& snapshot);
    /// Returns to the first screen and leaves the last look there, as lines.
    void finish(const Snapshot& snapshot);

private:
    void leave_screen();

    bool json_;
    bool terminal_;
    bool on_screen_ = false;
    Glyphs glyphs_;
};

}  // namespace monitor
