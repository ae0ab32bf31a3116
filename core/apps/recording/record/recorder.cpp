#include "recorder.h"

#include <utility>

#include <poll.h>

namespace recording {

namespace {

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
      reader_(source, plan.limits, [this](const capture::Datagram& datagram) { take(datagram); }),
      writer_(writer),
      signals_(signals),
      on_conflict_(std::move(on_conflict)),
      on_frames_(std::move(on_frames)),
      grouper_(plan.frame_gap),
      encoder_(plan.timing) {}

void Recorder::run() {
    bool over = false;
    while (!over) {
        reader_.wait(kLongestWait, {signals_.descriptor(), writer_.failure_descriptor()});
        const bool limit_reached = reader_.read();
        over = signals_.take().has_value() || is_readable(writer_.failure_descriptor()) || limit_reached;
        on_frames_(statistics_.frames());
    }
    reader_.read_rest();
}

void Recorder::finish() {
    write(grouper_.finish());
}

void Recorder::take(const capture::Datagram& datagram) {
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
    if (plan_.one_destination && !destinations_.chooses(arrival.dmx.universe, arrival.peer, arrival.time)) {
        statistics_.add_filtered();
        return;
    }
    reader_.note_wanted(datagram);
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

}  // namespace recording
