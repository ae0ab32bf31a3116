#pragma once
// Watches a source and shows what it sees.

#include <chrono>
#include <optional>

#include "capture/source.h"
#include "capture/source_options.h"
#include "comparison.h"
#include "monitor_output.h"
#include "posix/stop_signals.h"
#include "stream_table.h"

namespace monitor {

/// Whom to hear, and until when.
struct WatchPlan {
    capture::Payload payload = capture::Payload::Plain;
    capture::EndpointFilter sender;
    /// From the beginning; nothing: no limit.
    std::optional<std::chrono::nanoseconds> duration;
    /// From the latest ArtDmx, once there is one; nothing: no limit.
    std::optional<std::chrono::nanoseconds> idle;
};

/// All on the main thread. Source, output, signals and comparison are borrowed and outlive it.
class Watch {
public:
    /// @param comparison  null unless a recording is compared with
    Watch(const WatchPlan& plan, capture::Source& source, MonitorOutput& output, posix::StopSignals& signals,
          Comparison* comparison);

    /// Watches until a signal or a limit, then takes in what had arrived before and shows it once more.
    void run();

private:
    /// Reads until nothing is there, or long enough; true when nothing is there.
    bool drain(int most_batches);
    void take(const capture::Datagram& datagram);
    [[nodiscard]] bool is_over(bool drained) const;
    /// Sleeps until a datagram, a signal, the next view, or until a limit may be reached.
    void wait(std::chrono::nanoseconds next_view) const;
    /// Calls `use` with what there is to show.
    template <typename Use>
    void look(const Use& use) const;

    const WatchPlan& plan_;
    capture::Source& source_;
    MonitorOutput& output_;
    posix::StopSignals& signals_;
    Comparison* comparison_;
    StreamTable table_;
    /// What came later is not taken in.
    std::optional<std::chrono::nanoseconds> end_;
    std::optional<std::chrono::nanoseconds> latest_;
    bool beyond_end_ = false;
};

}  // namespace monitor
