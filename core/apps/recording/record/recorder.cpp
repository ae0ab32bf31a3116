#include "recorder.h"

#include <algorithm>
#include <array>
#include <utility>

#include <poll.h>

namespace recording {

namespace {

/// Batches read before signals and limits are looked at again.
constexpr int kBatchesPerTurn = 64;
/// Batches read at most at the end: more than any buffer holds.
constexpr int kMostBatchesLeft = 4096;
/// Longest sleep, so that progress is shown and a stepped clock noticed.
constexpr std::chrono::milliseconds kLongestWait{100};

bool is_readable(int descriptor) {
    pollfd wait{descriptor, POLLIN, 0};
    return poll(&wait, 1, 0) == 1;
}

}  // namespace

Recorder::Recorder(const RecordPlan& plan, capture::Source& source, FrameWriter& writer,
                   posix::StopSignals& signals,
                   std::function<void(const capture::SenderConflict&)> on_conflict,
                   std::function<void(std::uint64_t)> on_frames)
    : plan_(plan),
      source_(source),
      writer_(writer),
      signals_(signals),
      on_conflict_(std::move(on_conflict)),
      on_frames_(std::move(on_frames)),
      grouper_(plan.frame_gap),
      encoder_(plan.timing) {
    if (plan.duration) {
        end_ = source.now() + *plan.duration;
    }
}

void Recorder::run() {
    bool over = false;
    while (!over) {
        wait();
        const bool drained = drain();
        over = signals_.take().has_value() || is_readable(writer_.failure_descriptor()) || is_over(drained);
        on_frames_(statistics_.frames());
    }
    const std::chrono::nanoseconds now = source_.now();
    end_ = end_ ? std::min(*end_, now) : now;
    for (int batch = 0; batch < kMostBatchesLeft && !beyond_end_; ++batch) {
        if (source_.receive([this](const capture::Datagram& datagram) { take(datagram); }) == 0) {
            break;
        }
    }
    write(grouper_.finish());
}

bool Recorder::drain() {
    for (int batch = 0; batch < kBatchesPerTurn && !beyond_end_; ++batch) {
        if (source_.receive([this](const capture::Datagram& datagram) { take(datagram); }) == 0) {
            return true;
        }
    }
    return false;
}

void Recorder::take(const capture::Datagram& datagram) {
    if (end_ && datagram.time > *end_) {
        beyond_end_ = true;
        return;
    }
    const capture::Arrival arrival = capture::read_arrival(datagram, plan_.payload);
    const bool heard = plan_.sender.passes(arrival.peer);
    if (heard && arrival.kind == artnet::PacketKind::Sync) {
        grouper_.sync(arrival.peer.address, arrival.time);
    }
    if (arrival.kind != artnet::PacketKind::Dmx) {
        statistics_.add_unrecorded(arrival.kind);
        return;
    }
    if (!heard || !plan_.universes[arrival.dmx.universe]) {
        statistics_.add_filtered();
        return;
    }
    latest_ = arrival.time;
    if (const auto conflict = statistics_.add_recorded(arrival)) {
        on_conflict_(*conflict);
    }
    write(grouper_.add({arrival.time, arrival.peer.address, arrival.dmx.universe, arrival.dmx.bytes}));
}

void Recorder::write(std::optional<Frame> frame) {
    if (frame) {
        statistics_.add_frame(frame->end);
        writer_.push(encoder_.encode(std::move(*frame)));
    }
}

bool Recorder::is_over(bool drained) const {
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

void Recorder::wait() const {
    std::chrono::nanoseconds time = kLongestWait;
    const std::chrono::nanoseconds now = source_.now();
    if (end_) {
        time = std::min(time, *end_ - now);
    }
    if (plan_.idle && latest_) {
        time = std::min(time, *latest_ + *plan_.idle - now);
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(time);
    std::array<pollfd, 3> waits{{{source_.descriptor(), POLLIN, 0},
                                 {signals_.descriptor(), POLLIN, 0},
                                 {writer_.failure_descriptor(), POLLIN, 0}}};
    poll(waits.data(), waits.size(), static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
}

}  // namespace recording
