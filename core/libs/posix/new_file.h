#pragma once
// A file that is there whole or not at all.

#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

#include <sys/types.h>

#include "posix/file_descriptor.h"

namespace posix {

/**
 * Writes a file that gets its name only when it is whole.
 *
 * Until commit(), and for ever where that is not reached, what has the name stays as it is. The data go to a
 * nameless file of the same directory, which vanishes with the process, or, where the file system has none,
 * to a hidden one (".new-PROCESS-NUMBER"), which the destructor removes. What has the name but is no regular
 * file (a device, a FIFO) is written to as the data come: there is nothing to keep or to replace. Of a
 * symbolic link, what it leads to is replaced.
 *
 * Failures are std::system_error whose text begins with the path, also those of the stream. One thread.
 */
class NewFile {
public:
    enum class Existing {
        Keep,    ///< a file that has the name is an error (EEXIST), at once and at the end
        Replace  ///< a file that has the name is replaced, its permissions are kept
    };

    NewFile(const std::string& path, Existing existing);
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    /// Where to write; throws when that fails.
    [[nodiscard]] std::ostream& stream() noexcept { return stream_; }

    /// Whether the path stands for something that is written to as the data come, such as a device.
    [[nodiscard]] bool is_special() const noexcept { return special_; }

    enum class Durability {
        Durable,   ///< the data are on the disk before the name is
        Transient  ///< the disk takes them when it likes: a power cut may leave neither the old nor the new
    };

    /// Gives the file its name. Nothing may be written afterwards. Readers see all or nothing in any case.
    void commit(Durability durability = Durability::Durable);

private:
    /// Collects what is written and writes it to a descriptor.
    class Buffer final : public std::streambuf {
    public:
        explicit Buffer(const NewFile& file);

    protected:
        int_type overflow(int_type next) override;
        int sync() override;

    private:
        void write_out();

        const NewFile& file_;
        std::vector<char> bytes_;
    };

    [[noreturn]] void fail(int error) const;
    void open_unnamed();
    void open_hidden();
    void name_keeping();
    void name_replacing();
    [[nodiscard]] std::string next_hidden_name();

    /// As given, for messages.
    std::string path_;
    /// Where the file goes: what a symbolic link leads to.
    std::string target_;
    /// Ends in a slash, or is empty: the working directory.
    std::string directory_;
    Existing existing_;
    /// What the file is to have, when it replaces one.
    mode_t permissions_ = 0;
    bool replaces_ = false;
    /// Written to as it stands, without commit().
    bool special_ = false;
    /// The file's name until it has its own; empty: none.
    std::string hidden_;
    int hidden_count_ = 0;
    FileDescriptor file_;
    Buffer buffer_;
    std::ostream stream_;
};

}  // namespace posix
