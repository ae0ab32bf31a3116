#include "output_recording.h"

#include "existing_file.h"

namespace recording {

OutputRecording::OutputRecording(const std::string& path, bool force)
    : file_(naming_force([&] {
          return posix::NewFile(path,
                                force ? posix::NewFile::Existing::Replace : posix::NewFile::Existing::Keep);
      })),
      writer_(file_.stream()) {}

void OutputRecording::commit() {
    writer_.pad();
    naming_force([&] { file_.commit(); });
}

}  // namespace recording
