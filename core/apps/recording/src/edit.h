#pragma once
// Editing recordings by the times of their packets: what to write, apart from reading and writing it.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/value_text.h"
#include "recording_index.h"

namespace recording {

/// A packet of the recording to be written.
struct EditedPacket {
    /// Which of the sources it comes from.
    std::uint32_t source = 0;
    std::uint16_t size = 0;
    /// The universe that it is to have.
    std::uint16_t universe = 0;
    std::uint64_t offset = 0;
    std::chrono::nanoseconds begin{0};
    /// Whether a timing packet of no time follows it where the next packet begins with it.
    bool ends_frame_of_no_time = false;
};

/// The recording to be written, in the order of the times.
struct EditedRecording {
    std::vector<EditedPacket> packets;
    /// Where the last frame ends by its timing packet; it gets one when that is behind its begin.
    std::chrono::nanoseconds end{0};
};

/**
 * What plays from `from` up to, but not at, `to`; a packet at time T of it is one at `from` + T of the
 * source.
 *
 * It begins with the look that stands at `from`: the last packet of each universe before it, unless the
 * universe has one at that very time. The last frame ends at `to`, or where it ended.
 * Throws cli::Failure when nothing of the recording lies there, or it has no times.
 */
[[nodiscard]] EditedRecording cut_recording(const RecordingIndex& source, std::chrono::nanoseconds from,
                                            std::chrono::nanoseconds to);

/**
 * All packets of several recordings, each at its own time; at the same time, in the order of the sources.
 *
 * Throws cli::Failure when two have a universe in common, naming both, or one has no times.
 */
[[nodiscard]] EditedRecording merge_recordings(const std::vector<RecordingIndex>& sources);

/// One range of universes to be renumbered.
struct Renumbering {
    cli::NumberRange from;
    /// The first of as many.
    std::uint32_t to = 0;
};

/// Reads "FROM=TO", numbers or ranges of one length; throws cli::UsageError.
[[nodiscard]] Renumbering parse_renumbering(const std::string& text);

/**
 * The recording with other universes; those that no rule names stay.
 *
 * Throws cli::Failure when a rule names none of its universes, and when two of them would become one.
 */
[[nodiscard]] EditedRecording remap_recording(const RecordingIndex& source,
                                              const std::vector<Renumbering>& rules);

}  // namespace recording
