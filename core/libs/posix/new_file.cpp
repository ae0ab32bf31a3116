#include "posix/new_file.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

namespace posix {

// Recordings go beyond 2 GiB, also on 32-bit boards: see the top CMakeLists.txt.
static_assert(sizeof(off_t) == 8);

namespace {

constexpr std::size_t kBufferSize = 65536;
/// Given to new files, less what the user's mask takes away.
constexpr mode_t kPermissions = 0666;
constexpr mode_t kAllPermissions = 07777;

std::string resolved(const std::string& path) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::canonical(path, error);
    return error ? path : target.string();
}

}  // namespace

NewFile::Buffer::Buffer(const NewFile& file) : file_(file), bytes_(kBufferSize) {
    setp(bytes_.data(), bytes_.data() + bytes_.size());
}

void NewFile::Buffer::write_out() {
    const char* next = pbase();
    while (next != pptr()) {
        const ssize_t written = write(file_.file_.get(), next, static_cast<std::size_t>(pptr() - next));
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            const int error = errno;
            // What could not be written is not tried again.
            setp(bytes_.data(), bytes_.data() + bytes_.size());
            file_.fail(error);
        }
        next += written;
    }
    setp(bytes_.data(), bytes_.data() + bytes_.size());
}

NewFile::Buffer::int_type NewFile::Buffer::overflow(int_type next) {
    write_out();
    if (!traits_type::eq_int_type(next, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(next);
        pbump(1);
    }
    return traits_type::not_eof(next);
}

int NewFile::Buffer::sync() {
    write_out();
    return 0;
}

NewFile::NewFile(const std::string& path, Existing existing)
    : path_(path), target_(path), existing_(existing), buffer_(*this), stream_(&buffer_) {
    // What the buffer throws then passes through the stream.
    stream_.exceptions(std::ios::badbit);
    struct stat there {};
    if (stat(path.c_str(), &there) == 0) {
        if (!S_ISREG(there.st_mode)) {
            file_ = FileDescriptor(open(path.c_str(), O_WRONLY | O_CLOEXEC));
            if (!file_) {
                fail(errno);
            }
            special_ = true;
            return;
        }
        if (existing == Existing::Keep) {
            fail(EEXIST);
        }
        target_ = resolved(path);
        permissions_ = there.st_mode & kAllPermissions;
        replaces_ = true;
    } else if (errno != ENOENT) {
        fail(errno);
    }
    directory_ = target_.substr(0, target_.rfind('/') + 1);
    open_unnamed();
    if (!file_) {
        open_hidden();
    }
}

NewFile::~NewFile() {
    if (!hidden_.empty()) {
        unlink(hidden_.c_str());
    }
}

void NewFile::commit(Durability durability) {
    if (!stream_) {
        // Someone has gone on after a failure.
        fail(EIO);
    }
    stream_.flush();
    if (special_) {
        return;
    }
    if (replaces_ && fchmod(file_.get(), permissions_) != 0) {
        fail(errno);
    }
    // A full disk may show only here, and a name must not come to the disk before its data.
    if (durability == Durability::Durable && fsync(file_.get()) != 0) {
        fail(errno);
    }
    if (existing_ == Existing::Keep) {
        name_keeping();
    } else {
        name_replacing();
    }
}

void NewFile::fail(int error) const {
    throw std::system_error(error, std::generic_category(), path_);
}

void NewFile::open_unnamed() {
    // The name is given through /proc; without it there is none to be had.
    if (access("/proc/self/fd", X_OK) != 0) {
        return;
    }
    const std::string directory = directory_.empty() ? "." : directory_;
    file_ = FileDescriptor(open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, kPermissions));
}

void NewFile::open_hidden() {
    do {
        hidden_ = next_hidden_name();
        file_ = FileDescriptor(open(hidden_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, kPermissions));
    } while (!file_ && errno == EEXIST);
    if (!file_) {
        const int error = errno;
        hidden_.clear();
        fail(error);
    }
}

std::string NewFile::next_hidden_name() {
    return directory_ + ".new-" + std::to_string(getpid()) + "-" + std::to_string(++hidden_count_);
}

void NewFile::name_keeping() {
    if (hidden_.empty()) {
        const std::string self = "/proc/self/fd/" + std::to_string(file_.get());
        if (linkat(AT_FDCWD, self.c_str(), AT_FDCWD, target_.c_str(), AT_SYMLINK_FOLLOW) != 0) {
            fail(errno);
        }
        return;
    }
    if (renameat2(AT_FDCWD, hidden_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE) != 0) {
        // Some file systems cannot promise it; there, looking first is all that can be done.
        if (errno != EINVAL && errno != ENOSYS) {
            fail(errno);
        }
        if (access(target_.c_str(), F_OK) == 0) {
            fail(EEXIST);
        }
        if (rename(hidden_.c_str(), target_.c_str()) != 0) {
            fail(errno);
        }
    }
    hidden_.clear();
}

void NewFile::name_replacing() {
    if (hidden_.empty()) {
        // A nameless file can be given a free name only, which then replaces the other.
        const std::string self = "/proc/self/fd/" + std::to_string(file_.get());
        std::string name = next_hidden_name();
        while (linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0) {
            if (errno != EEXIST) {
                fail(errno);
            }
            name = next_hidden_name();
        }
        hidden_ = name;
    }
    if (rename(hidden_.c_str(), target_.c_str()) != 0) {
        fail(errno);
    }
    hidden_.clear();
}

}  // namespace posix
