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
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "artnet/recording_writer.h"
#include "artnet/records.h"
#include "cli/failure.h"

namespace recording {

namespace {

/// What a new file is given, less what the user's mask takes away.
constexpr mode_t kPermissions = 0666;
constexpr mode_t kAllPermissions = 07777;
/// The reserve grows by so much at once: each time costs a write of the disk more.
constexpr std::uint64_t kReserve = std::uint64_t{1} << 20U;

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

/// In no identifier.
constexpr std::uint8_t kHidden = 0xFF;

/// Takes the first byte from every identifier: nothing of it is a packet then.
void hide_packets(std::span<std::uint8_t> bytes) noexcept {
    const std::span identifier(kArtNetIdentifier);
    for (auto at = bytes.begin();; ++at) {
        at = std::search(at, bytes.end(), identifier.begin(), identifier.end());
        if (at == bytes.end()) {
            return;
        }
        *at = kHidden;
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
    if (!open_unnamed()) {
        open_temporary();
    }
    if (fchmod(file_.get(), permissions) != 0) {
        fail(errno, true);
    }
}

RecordingFile::~RecordingFile() {
    static_cast<void>(cut_reserve());
}

RecordingFile::TemporaryName::~TemporaryName() {
    if (!text.empty()) {
        unlink(text.c_str());
    }
}

bool RecordingFile::open_unnamed() {
    // The name is given through /proc; without it there is none to be had.
    if (access("/proc/self/fd", X_OK) != 0) {
        return false;
    }
    file_ = posix::FileDescriptor(
        open(directory_of(path_).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR));
    return static_cast<bool>(file_);
}

void RecordingFile::open_temporary() {
    std::string name = path_ + ".part-XXXXXX";
    file_ = posix::FileDescriptor(mkostemp(name.data(), O_CLOEXEC));
    if (!file_) {
        fail(errno, true);
    }
    temporary_.text = name;
}

void RecordingFile::append(std::span<const std::uint8_t> frame) {
    const std::uint64_t end = end_ + frame.size();
    std::vector<std::uint8_t> bytes(frame.size() + recording_padding(end));
    std::copy(frame.begin(), frame.end(), bytes.begin());
    hide_packets(bytes);
    reserve(end_ + bytes.size());
    // Cut anywhere, the second finds all the rest of each packet that it makes one.
    if (!write_at(bytes, end_) || !write_at(frame, end_)) {
        const int error = errno;
        fail(error, take_back());
    }
    if (!named_) {
        take_name();
    }
    end_ = end;
}

void RecordingFile::sync() {
    if (fdatasync(file_.get()) != 0) {
        fail(errno, false);
    }
}

void RecordingFile::finish() {
    const bool cut = cut_reserve();
    const int error = errno;
    sync();
    if (!cut) {
        fail(error, true);
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

bool RecordingFile::resize(std::uint64_t size) const noexcept {
    return ftruncate(file_.get(), static_cast<off_t>(size)) == 0;
}

void RecordingFile::reserve(std::uint64_t end) {
    if (!reserving_ || end <= reserved_) {
        return;
    }
    const std::uint64_t wanted = (end / kReserve + 1) * kReserve;
    rlimit limit{};
    // Beyond the limit a signal would end the program.
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || wanted > limit.rlim_cur) {
        reserving_ = false;
        return;
    }
    if (!resize(wanted)) {
        reserving_ = false;
        // File systems without holes write the zeros and may stop half-way, on a full disk.
        static_cast<void>(resize(std::max(reserved_, size())));
        return;
    }
    reserved_ = wanted;
    sync();
}

bool RecordingFile::cut_reserve() noexcept {
    if (reserved_ <= size()) {
        return true;
    }
    reserved_ = 0;
    return resize(size());
}

bool RecordingFile::take_back() noexcept {
    // What was padding before lies within a block that the file has, so zeros find room on a full disk, too.
    const std::vector<std::uint8_t> zeros(recording_padding(end_));
    const std::uint64_t size = write_at(zeros, end_) ? end_ + zeros.size() : end_;
    reserved_ = 0;
    // Where that fails nothing is left to try; the parser passes over what is behind the last whole packet.
    return resize(size) && fdatasync(file_.get()) == 0;
}

void RecordingFile::take_name() {
    // A name must not come to the disk before the data.
    sync();
    if (!(replace_ ? name_replacing() : name_keeping())) {
        if (errno == EEXIST) {
            refuse_existing();
        }
        fail(errno, true);
    }
    temporary_.text.clear();
    named_ = true;
    sync_directory(path_);
}

bool RecordingFile::name_keeping() const {
    if (temporary_.text.empty()) {
        return link_as(path_);
    }
    if (renameat2(AT_FDCWD, temporary_.text.c_str(), AT_FDCWD, path_.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    // Some file systems cannot promise it; there, looking first is all that can be done.
    if (access(path_.c_str(), F_OK) == 0) {
        errno = EEXIST;
        return false;
    }
    return rename(temporary_.text.c_str(), path_.c_str()) == 0;
}

bool RecordingFile::name_replacing() {
    if (temporary_.text.empty()) {
        // A nameless file can be given a free name only, which then replaces the other.
        std::string name;
        int number = 0;
        do {
            name = path_ + ".part-" + std::to_string(getpid()) + "-" + std::to_string(++number);
            if (link_as(name)) {
                temporary_.text = name;
            } else if (errno != EEXIST) {
                return false;
            }
        } while (temporary_.text.empty());
    }
    return rename(temporary_.text.c_str(), path_.c_str()) == 0;
}

bool RecordingFile::link_as(const std::string& name) const {
    const std::string self = "/proc/self/fd/" + std::to_string(file_.get());
    return linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

void RecordingFile::fail(int error, bool kept) const {
    std::string text = path_ + ": " + std::generic_category().message(error);
    if (end_ > 0) {
        const std::string bytes = std::to_string(size()) + " bytes recorded until then ";
        text += kept ? "; the " + bytes + "are whole and play"
                     : "; how much of the " + bytes + "has come to the disk is not known";
    }
    throw cli::Failure(text);
}

void RecordingFile::refuse_existing() const {
    throw cli::Failure(path_ + ": is there already (--force replaces it)");
}

}  // namespace recording
