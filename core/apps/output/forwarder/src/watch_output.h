#pragma once
// Shows --watch on standard output: a live screen in a terminal, lines or JSON elsewhere.

#include <chrono>

#include "cli/live_screen.h"
#include "report.h"
#include "watch_statistics.h"

namespace forwarder {

/// Main thread only.
class WatchOutput {
public:
    explicit WatchOutput(bool json) : json_(json), screen_(!json) {}

    /// Time between two calls of show().
    [[nodiscard]] std::chrono::milliseconds period() const noexcept { return screen_.period(); }
    void show(const WatchStatistics& statistics, const Report& report);
    /// Returns to the first screen, so that text printed next stays there.
    void leave_screen() { screen_.leave(); }

private:
    bool json_;
    cli::LiveScreen screen_;
};

}  // namespace forwarder
