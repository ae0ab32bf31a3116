#pragma once
// Watches a source and shows what it sees.

#include "capture/limited_reader.h"
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
    /// Wanted is ArtDmx.
    capture::Limits limits;
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
    void take(const capture::Datagram& datagram);
    /// Calls `use` with what there is to show.
    template <typename Use>
    void look(const Use& use) const;

    const WatchPlan& plan_;
    capture::Source& source_;
    capture::LimitedReader reader_;
    MonitorOutput& output_;
    posix::StopSignals& signals_;
    Comparison* comparison_;
    StreamTable table_;
};

}  // namespace monitor
