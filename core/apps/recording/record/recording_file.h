#pragma once
// The file that a capture goes to, whole at every moment.

#include <cstdint>
#include <span>
#include <string>

#include "posix/file_descriptor.h"

namespace recording {

/**
 * Appends frames so that what is on disk plays, whenever the writing ends.
 *
 * With every frame goes padding to a multiple of 512 bytes, which the next frame overwrites: the file never
 * ends within a packet, and its reader never meets a stale tail. The file gets its name with the first frame;
 * before that it has a temporary one beside it, so that neither an empty recording is left behind nor an
 * existing one lost to a capture that gets nothing. An append that fails is taken back.
 *
 * Failures are cli::Failure that name the file. One thread at a time.
 */
class RecordingFile {
public:
    /// @param replace  whether a file that is there may be replaced; refused otherwise, here and with the
    /// first frame
    RecordingFile(std::string path, bool replace);
    /// Removes what has no frame.
    ~RecordingFile();
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    /// @param frame  whole packets
    void append(std::span<const std::uint8_t> frame);
    /// Brings to the disk what has been appended.
    void sync();

    /// Size of the file, padding included.
    [[nodiscard]] std::uint64_t size() const noexcept;
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

private:
    [[nodiscard]] bool write_at(std::span<const std::uint8_t> bytes, std::uint64_t offset) const noexcept;
    void take_back() const noexcept;
    void take_name();
    [[noreturn]] void fail(int error) const;
    [[noreturn]] void refuse_existing() const;

    std::string path_;
    bool replace_;
    /// The temporary name; empty once the file has its own.
    std::string temporary_;
    posix::FileDescriptor file_;
    /// Where the next frame goes: the end of the last one, without padding.
    std::uint64_t end_ = 0;
};

}  // namespace recording
