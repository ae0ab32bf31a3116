#pragma once
// Shows what is seen on standard output: a live screen in a terminal, lines or JSON elsewhere.

#include <chrono>

#include "cli/live_screen.h"
#include "monitor_view.h"

namespace monitor {

/// One thread.
class MonitorOutput {
public:
    explicit MonitorOutput(bool json) : json_(json), screen_(!json) {}

    /// Time between two calls of show().
    [[nodiscard]] std::chrono::milliseconds period() const noexcept { return screen_.period(); }
    void show(const Snapshot& snapshot);
    /// Returns to the first screen and leaves the last look there, as lines.
    void finish(const Snapshot& snapshot);

private:
    bool json_;
    cli::LiveScreen screen_;
};

}  // namespace monitor
