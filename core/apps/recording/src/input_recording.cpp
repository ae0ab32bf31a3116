#include "input_recording.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/failure.h"
#include "cli/progress.h"

namespace recording {

void read_recording(const std::string& path, RecordingReader& reader, CutShort cut_short) {
    cli::Progress progress(path, size_of_input(path));
    reader.on_progress = [&progress](std::uint64_t bytes) { progress.update(bytes); };
    std::error_code error;
    reader.read(path.c_str(), error);
    reader.on_progress = nullptr;
    progress.clear();
    if (error == errc::make_error_code(errc::unexpected_end_of_input) && cut_short == CutShort::Accept) {
        std::fprintf(stderr, "%s: ends within the packet at byte %llu, which is left out\n", path.c_str(),
                     static_cast<unsigned long long>(reader.parser().packet_offset()));
        reader.deliver_rest();
        return;
    }
    if (error) {
        fail_parsing(path, error, reader.parser().packet_offset());
    }
}

std::uint64_t size_of_input(const std::string& path) {
    struct stat there {};
    if (stat(path.c_str(), &there) != 0 || access(path.c_str(), R_OK) != 0) {
        throw cli::Failure(path + ": " + std::strerror(errno));
    }
    if (S_ISDIR(there.st_mode)) {
        throw cli::Failure(path + ": is a directory, expected a recording");
    }
    return S_ISREG(there.st_mode) ? static_cast<std::uint64_t>(there.st_size) : 0;
}

void fail_parsing(const std::string& path, const std::error_code& error, std::uint64_t offset) {
    if (error == errc::make_error_code(errc::header_not_found)) {
        throw cli::Failure(path + ": holds no Art-Net packet, expected a recording");
    }
    if (error == errc::make_error_code(errc::unexpected_end_of_input)) {
        throw cli::Failure(path + ": ends within the packet at byte " + std::to_string(offset));
    }
    throw cli::Failure(path + ": " + error.message());
}

}  // namespace recording
