#pragma once
// Writes an edited recording: copies its packets from their sources.

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "edit.h"
#include "posix/file_descriptor.h"
#include "written_summary.h"

namespace recording {

/// Reads packets from their places in a file. Reads ahead, since mostly the next place is asked for.
class PacketSource {
public:
    /// Throws cli::Failure when the file cannot be opened.
    explicit PacketSource(std::string path);

    /// The packet's bytes, valid until the next call. Throws cli::Failure when there is none (any more).
    [[nodiscard]] std::span<std::uint8_t> packet(std::uint64_t offset, std::size_t size);

private:
    std::string path_;
    posix::FileDescriptor file_;
    /// What is read ahead, and where that begins in the file.
    std::vector<std::uint8_t> window_;
    std::uint64_t window_begin_ = 0;
};

/**
 * Writes the recording whole or not at all, with nanosecond timing packets; shows progress, and says on
 * standard error what of the sources was left out.
 *
 * @param sources  where the packets' numbers point
 * @param force    replace a file that is there
 * Throws cli::Failure and std::system_error, which name the file.
 */
WrittenSummary write_edited(const EditedRecording& recording, const std::vector<RecordingIndex>& sources,
                            const std::string& path, bool force);

}  // namespace recording
