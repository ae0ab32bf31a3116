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
 * The file is kept ahead of the writing by a reserve of zeros that is on the disk before frames go there:
 * however little of a frame has come to the file when the process is killed or the power cut, zeros follow,
 * so that it never ends within a packet. A frame is written without the beginnings of its identifiers first
 * and with them then: a kill in between leaves whole packets of it or none. What a power cut leaves of frames
 * since the last sync() is up to the disk: blocks of it may be zeros, within levels, a header or a time.
 *
 * With every frame goes padding to a multiple of 512 bytes, which the next frame overwrites; at the end the
 * reserve is cut off behind it, and the reader meets no stale tail. Where there is no reserve to be had (a
 * file system or a limit that forbids such a size), the file ends with the padding all the time.
 *
 * The file gets its name with the first frame, so that neither an empty recording is left behind nor an
 * existing one lost to a capture that gets nothing; before that it has none and vanishes with the process,
 * or, where the file system has no nameless files, a temporary one beside its own. An append that fails is
 * taken back.
 *
 * Failures are cli::Failure that name the file. One thread at a time.
 */
class RecordingFile {
public:
    /// @param replace  whether a file that is there may be replaced; refused otherwise, here and with the
    /// first frame
    RecordingFile(std::string path, bool replace);
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;
    /// Cuts off the reserve, where finish() has not.
    ~RecordingFile();

    /// @param frame  whole packets
    void append(std::span<const std::uint8_t> frame);
    /// Brings to the disk what has been appended.
    void sync();
    /// Cuts off the reserve and brings all to the disk.
    void finish();

    /// Size of the file without its reserve, padding included.
    [[nodiscard]] std::uint64_t size() const noexcept;
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

private:
    /// A name beside the file's own; goes away with the object.
    struct TemporaryName {
        TemporaryName() = default;
        ~TemporaryName();
        TemporaryName(const TemporaryName&) = delete;
        TemporaryName& operator=(const TemporaryName&) = delete;

        /// Empty: none.
        std::string text;
    };

    /// Open without a name; false where that cannot be.
    [[nodiscard]] bool open_unnamed();
    void open_temporary();
    [[nodiscard]] bool write_at(std::span<const std::uint8_t> bytes, std::uint64_t offset) const noexcept;
    /// False with errno set when that fails.
    [[nodiscard]] bool resize(std::uint64_t size) const noexcept;
    /// Brings a reserve that goes beyond `end` to the disk, where that can be.
    void reserve(std::uint64_t end);
    /// False with errno set when that fails; the file plays then, too.
    [[nodiscard]] bool cut_reserve() noexcept;
    /// Removes what stands behind the last frame; whether the rest is on the disk then.
    [[nodiscard]] bool take_back() noexcept;
    void take_name();
    // Both give the file its name; false with errno set when that fails.
    [[nodiscard]] bool name_keeping() const;
    [[nodiscard]] bool name_replacing();
    /// Gives a nameless file a name that is free; false with errno set when that fails.
    [[nodiscard]] bool link_as(const std::string& name) const;
    /// @param kept  whether what has been recorded until now is on the disk
    [[noreturn]] void fail(int error, bool kept) const;
    [[noreturn]] void refuse_existing() const;

    std::string path_;
    bool replace_;
    TemporaryName temporary_;
    bool named_ = false;
    posix::FileDescriptor file_;
    /// Where the next frame goes: the end of the last one, without padding.
    std::uint64_t end_ = 0;
    /// Size of the file with its reserve; 0: it has none.
    std::uint64_t reserved_ = 0;
    /// Whether a reserve can be had.
    bool reserving_ = true;
};

}  // namespace recording
