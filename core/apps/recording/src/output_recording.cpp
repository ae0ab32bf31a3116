#include "output_recording.h"

#include <system_error>

#include "cli/failure.h"

namespace recording {

namespace {

/// Runs `step`; says of a file that is in the way what to do about it.
template <typename Step>
auto explaining(const Step& step) {
    try {
        return step();
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::file_exists) {
            throw cli::Failure(std::string(error.what()) + " (--force replaces it)");
        }
        throw;
    }
}

}  // namespace

OutputRecording::OutputRecording(const std::string& path, bool force)
    : file_(explaining([&] {
          return posix::NewFile(path,
                                force ? posix::NewFile::Existing::Replace : posix::NewFile::Existing::Keep);
      })),
      writer_(file_.stream()) {}

void OutputRecording::commit() {
    writer_.pad();
    explaining([&] { file_.commit(); });
}

}  // namespace recording
