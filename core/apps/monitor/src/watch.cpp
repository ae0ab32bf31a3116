#include "watch.h"

#include <algorithm>
#include <array>
#include <vector>

#include <poll.h>

namespace monitor {

namespace {

/// Batches read before signals, limits and the view get their turn.
constexpr int kBatchesPerTurn = 64;
/// Batches read at most at the end: more than any buffer holds.
constexpr int kMostBatchesLeft = 4096;

}  // namespace

Watch::Watch(const WatchPlan& plan, capture::Source& source, MonitorOutput& output,
             posix::StopSignals& signals, Comparison* comparison)
    : plan_(plan),
      source_(source),
      output_(output),
      signals_(signals),
      comparison_(comparison),
      table_(plan.payload == capture::Payload::Plain) {
    if (plan.duration) {
        end_ = source.now() + *plan.duration;
    }
}

void Watch::run() {
    std::chrono::nanoseconds next_view = source_.now();
    bool over = false;
    while (!over) {
        if (source_.now() >= next_view) {
            look([this](const Snapshot& snapshot) { output_.show(snapshot); });
            next_view = source_.now() + output_.period();
        }
        wait(next_view);
        const bool drained = drain(kBatchesPerTurn);
        over = signals_.take().has_value() || is_over(drained);
    }
    const std::chrono::nanoseconds now = source_.now();
    end_ = end_ ? std::min(*end_, now) : now;
    drain(kMostBatchesLeft);
    if (comparison_ != nullptr) {
        comparison_->finish();
    }
    look([this](const Snapshot& snapshot) { output_.finish(snapshot); });
}

bool Watch::drain(int most_batches) {
    for (int batch = 0; batch < most_batches && !beyond_end_; ++batch) {
        if (source_.receive([this](const capture::Datagram& datagram) { take(datagram); }) == 0) {
            return true;
        }
    }
    return false;
}

void Watch::take(const capture::Datagram& datagram) {
    if (end_ && datagram.time > *end_) {
        beyond_end_ = true;
        return;
    }
    const capture::Arrival arrival = capture::read_arrival(datagram, plan_.payload);
    if (!plan_.sender.passes(arrival.peer)) {
        return;
    }
    table_.add(arrival);
    if (arrival.kind != artnet::PacketKind::Dmx) {
        return;
    }
    latest_ = arrival.time;
    if (comparison_ != nullptr) {
        comparison_->add({arrival.time, arrival.peer, arrival.dmx.universe, arrival.dmx.sequence,
                          mark_of(arrival.dmx.levels)});
    }
}

bool Watch::is_over(bool drained) const {
    if (beyond_end_) {
        return true;
    }
    // What still waits in the socket came before.
    if (!drained) {
        return false;
    }
    const std::chrono::nanoseconds now = source_.now();
    return (end_ && now > *end_) || (plan_.idle && latest_ && now - *latest_ > *plan_.idle);
}

void Watch::wait(std::chrono::nanoseconds next_view) const {
    const std::chrono::nanoseconds now = source_.now();
    std::chrono::nanoseconds time = next_view - now;
    if (end_) {
        time = std::min(time, *end_ - now);
    }
    if (plan_.idle && latest_) {
        time = std::min(time, *latest_ + *plan_.idle - now);
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(time);
    std::array<pollfd, 2> waits{{{source_.descriptor(), POLLIN, 0}, {signals_.descriptor(), POLLIN, 0}}};
    // Bounded, so that a clock that is set back does not stop the view.
    poll(waits.data(), waits.size(), static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 1000)));
}

template <typename Use>
void Watch::look(const Use& use) const {
    const std::vector<StreamRow> rows = table_.rows(source_.now());
    const ComparisonCounts* const counts = comparison_ == nullptr ? nullptr : &comparison_->counts();
    use(Snapshot{rows, table_.others(), source_.kernel_drops(), plan_.payload == capture::Payload::Wrapped,
                 counts});
}

}  // namespace monitor
