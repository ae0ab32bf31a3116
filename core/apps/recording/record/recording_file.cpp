#include "recording_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "artnet/recording_writer.h"
#include "cli/failure.h"

namespace recording {

namespace {

/// What a new file is given, less what the user's mask takes away.
constexpr mode_t kPermissions = 0666;
constexpr mode_t kAllPermissions = 07777;

std::string directory_of(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

/// A new name is on the disk only once its directory is.
void sync_directory(const std::string& path) noexcept {
    const posix::FileDescriptor directory(
        open(directory_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory) {
        fsync(directory.get());
    }
}

}  // namespace

RecordingFile::RecordingFile(std::string path, bool replace) : path_(std::move(path)), replace_(replace) {
    const mode_t mask = umask(0);
    umask(mask);
    mode_t permissions = kPermissions & ~mask;
    struct stat there {};
    if (stat(path_.c_str(), &there) == 0) {
        if (!S_ISREG(there.st_mode)) {
            throw cli::Failure(path_ + ": expected a regular file or none; frames are overwritten in it");
        }
        if (!replace) {
            refuse_existing();
        }
        // Of a symbolic link, what it leads to is replaced.
        std::error_code error;
        const std::filesystem::path target = std::filesystem::canonical(path_, error);
        path_ = error ? path_ : target.string();
        permissions = there.st_mode & kAllPermissions;
    }
    temporary_ = path_ + ".part-XXXXXX";
    file_ = posix::FileDescriptor(mkostemp(temporary_.data(), O_CLOEXEC));
    if (!file_) {
        const int error = errno;
        temporary_.clear();
        fail(error);
    }
    if (fchmod(file_.get(), permissions) != 0) {
        fail(errno);
    }
}

RecordingFile::~RecordingFile() {
    if (!temporary_.empty()) {
        unlink(temporary_.c_str());
    }
}

void RecordingFile::append(std::span<const std::uint8_t> frame) {
    const std::uint64_t end = end_ + frame.size();
    std::vector<std::uint8_t> bytes(frame.size() + recording_padding(end));
    std::copy(frame.begin(), frame.end(), bytes.begin());
    if (!write_at(bytes, end_)) {
        const int error = errno;
        take_back();
        fail(error);
    }
    if (!temporary_.empty()) {
        take_name();
    }
    end_ = end;
}

void RecordingFile::sync() {
    if (fdatasync(file_.get()) != 0) {
        fail(errno);
    }
}

std::uint64_t RecordingFile::size() const noexcept {
    return end_ + recording_padding(end_);
}

bool RecordingFile::write_at(std::span<const std::uint8_t> bytes, std::uint64_t offset) const noexcept {
    while (!bytes.empty()) {
        const ssize_t written = pwrite(file_.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            errno = written == 0 ? ENOSPC : errno;
            return false;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
        offset += static_cast<std::uint64_t>(written);
    }
    return true;
}

void RecordingFile::take_back() const noexcept {
    // What was padding before lies within a block that the file has, so zeros find room on a full disk, too.
    const std::vector<std::uint8_t> zeros(recording_padding(end_));
    const std::uint64_t size = write_at(zeros, end_) ? end_ + zeros.size() : end_;
    if (ftruncate(file_.get(), static_cast<off_t>(size)) != 0) {
        // Nothing is left to try; the parser passes over what is behind the last whole packet.
        return;
    }
    fdatasync(file_.get());
}

void RecordingFile::take_name() {
    // A name must not come to the disk before the data.
    sync();
    int result = 0;
    if (replace_) {
        result = rename(temporary_.c_str(), path_.c_str());
    } else {
        result = renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, path_.c_str(), RENAME_NOREPLACE);
        if (result != 0 && (errno == EINVAL || errno == ENOSYS)) {
            // Some file systems cannot promise it; there, looking first is all that can be done.
            if (access(path_.c_str(), F_OK) == 0) {
                refuse_existing();
            }
            result = rename(temporary_.c_str(), path_.c_str());
        }
    }
    if (result != 0) {
        if (errno == EEXIST) {
            refuse_existing();
        }
        fail(errno);
    }
    temporary_.clear();
    sync_directory(path_);
}

void RecordingFile::fail(int error) const {
    std::string text = path_ + ": " + std::generic_category().message(error);
    if (end_ > 0) {
        text += "; the " + std::to_string(size()) + " bytes recorded until then are whole and play";
    }
    throw cli::Failure(text);
}

void RecordingFile::refuse_existing() const {
    throw cli::Failure(path_ + ": is there already (--force replaces it)");
}

}  // namespace recording
