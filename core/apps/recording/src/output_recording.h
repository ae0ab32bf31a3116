#pragma once
// A recording that a command makes.

#include <string>

#include "artnet/recording_writer.h"
#include "posix/new_file.h"

namespace recording {

/**
 * A new recording, which appears under its name when it is whole: see posix::NewFile.
 *
 * What cannot be written is thrown as std::system_error that names the file, also from the writer.
 */
class OutputRecording {
public:
    /// @param force  replace a file that is there; otherwise it is a cli::Failure, at once and in commit()
    OutputRecording(const std::string& path, bool force);

    [[nodiscard]] RecordingWriter& writer() noexcept { return writer_; }
    /// Whether the path stands for a device or a FIFO.
    [[nodiscard]] bool is_special() const noexcept { return file_.is_special(); }
    /// Pads the recording and gives the file its name.
    void commit();

private:
    posix::NewFile file_;
    RecordingWriter writer_;
};

}  // namespace recording
