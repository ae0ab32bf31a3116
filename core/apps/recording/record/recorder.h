#pragma once
// Captures from a source into a file.

#include <bitset>
#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "capture/arrival.h"
#include "capture/endpoint.h"
#include "capture/limited_reader.h"
#include "capture/source.h"
#include "destination_choice.h"
#include "frame_encoder.h"
#include "frame_grouper.h"
#include "frame_writer.h"
#include "posix/stop_signals.h"
#include "record_statistics.h"

namespace recording {

/// What to record, and until when.
struct RecordPlan {
    capture::Payload payload = capture::Payload::Plain;
    capture::EndpointFilter sender;
    /// Of wrapped datagrams for several destinations of a universe, whether only one's are recorded.
    bool one_destination = false;
    /// Universes to record.
    std::bitset<65536> universes;
    std::chrono::nanoseconds frame_gap{0};
    FrameTiming timing = FrameTiming::Nanoseconds;
    /// Wanted is what is recorded.
    capture::Limits limits;
};

/**
 * One capture. All on the main thread; the writer that it fills has a thread of its own.
 *
 * Source, writer and signals are borrowed and outlive it.
 */
class Recorder {
public:
    /// @param on_conflict  called when two senders of one universe are noticed
    /// @param on_frames    called now and then with the number of frames so far
    Recorder(const RecordPlan& plan, capture::Source& source, FrameWriter& writer,
             posix::StopSignals& signals, std::function<void(const capture::SenderConflict&)> on_conflict,
             std::function<void(std::uint64_t)> on_frames);

    /// Captures until a signal, a limit or a failure of the writer; then takes in what had arrived before.
    /// Throws capture::SourceError.
    void run();
    /// Hands the last frame to the writer, however run() has ended. Once, at the end.
    void finish();

    [[nodiscard]] const RecordStatistics& statistics() const noexcept { return statistics_; }

private:
    void take(const capture::Datagram& datagram);
    void write(std::optional<Frame> frame);

    const RecordPlan& plan_;
    capture::LimitedReader reader_;
    FrameWriter& writer_;
    posix::StopSignals& signals_;
    std::function<void(const capture::SenderConflict&)> on_conflict_;
    std::function<void(std::uint64_t)> on_frames_;
    DestinationChoice destinations_;
    FrameGrouper grouper_;
    FrameEncoder encoder_;
    RecordStatistics statistics_;
};

}  // namespace recording
