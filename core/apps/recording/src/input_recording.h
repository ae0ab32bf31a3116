#pragma once
// Reading a recording for a command, with progress shown and errors told.

#include <string>

#include "artnet/recording_reader.h"

namespace recording {

/// What to do about a recording that ends within a packet.
enum class CutShort {
    Refuse,
    Accept  ///< the packets before it count, and a line on standard error says so
};

/**
 * Has `reader`, whose callbacks are set, read a file; shows progress on the terminal.
 *
 * Throws cli::Failure, which names the file and the place, when the file cannot be read, holds no packet, or
 * ends within one and that is refused.
 */
void read_recording(const std::string& path, RecordingReader& reader, CutShort cut_short = CutShort::Refuse);

/// Bytes of a file; 0 when that cannot be known, as of a FIFO. Throws cli::Failure for what cannot be opened
/// or is a directory.
[[nodiscard]] std::uint64_t size_of_input(const std::string& path);

/// The failure that a parser's error of `path` means. `offset` is that of the packet found last.
[[noreturn]] void fail_parsing(const std::string& path, const std::error_code& error, std::uint64_t offset);

}  // namespace recording
