#include "watch.h"

#include <chrono>
#include <vector>

namespace monitor {

Watch::Watch(const WatchPlan& plan, capture::Source& source, MonitorOutput& output,
             posix::StopSignals& signals, Comparison* comparison)
    : plan_(plan),
      source_(source),
      reader_(source, plan.limits, [this](const capture::Datagram& datagram) { take(datagram); }),
      output_(output),
      signals_(signals),
      comparison_(comparison),
      table_(plan.payload == capture::Payload::Plain) {}

void Watch::run() {
    std::chrono::nanoseconds next_view = source_.now();
    bool over = false;
    while (!over) {
        if (source_.now() >= next_view) {
            look([this](const Snapshot& snapshot) { output_.show(snapshot); });
            next_view = source_.now() + output_.period();
        }
        reader_.wait(next_view - source_.now(), {signals_.descriptor()});
        const bool limit_reached = reader_.read();
        over = signals_.take().has_value() || limit_reached;
    }
    reader_.read_rest();
    if (comparison_ != nullptr) {
        comparison_->finish();
    }
    look([this](const Snapshot& snapshot) { output_.finish(snapshot); });
}

void Watch::take(const capture::Datagram& datagram) {
    const capture::Arrival arrival = capture::read_arrival(datagram, plan_.payload);
    if (!plan_.sender.passes(arrival.peer)) {
        return;
    }
    table_.add(arrival);
    if (arrival.kind != artnet::PacketKind::Dmx) {
        return;
    }
    reader_.note_wanted(datagram);
    if (comparison_ != nullptr) {
        comparison_->add({arrival.time, arrival.peer, arrival.dmx.universe, arrival.dmx.sequence,
                          mark_of(arrival.dmx.levels)});
    }
}

template <typename Use>
void Watch::look(const Use& use) const {
    const std::vector<StreamRow> rows = table_.rows(source_.now());
    const ComparisonCounts* const counts = comparison_ == nullptr ? nullptr : &comparison_->counts();
    use(Snapshot{rows, table_.others(), source_.kernel_drops(), plan_.payload == capture::Payload::Wrapped,
                 counts});
}

}  // namespace monitor
