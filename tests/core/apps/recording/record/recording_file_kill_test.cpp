// The file of a capture whose process is killed, or whose disk loses its power, while a frame is written.
#include "recording_file.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child_process.h"
#include "support/loaded_recording.h"
#include "support/recording.h"

namespace {

/// Bytes that the process still writes before it is killed.
std::size_t life = std::numeric_limits<std::size_t>::max();
bool reserve_can_be_had = true;
/// Size of the file when it was brought to the disk last.
off_t size_on_disk = 0;
/// Whether something was written beyond that.
bool written_beyond = false;

off_t size_of(int file) {
    struct stat status {};
    return fstat(file, &status) == 0 ? status.st_size : 0;
}

using WriteCall = ssize_t (*)(int file, const void* bytes, std::size_t size, off_t offset);
using ResizeCall = int (*)(int file, off_t size);

ssize_t write_while_alive(WriteCall call, int file, const void* bytes, std::size_t size, off_t offset) {
    written_beyond = written_beyond || offset + static_cast<off_t>(size) > size_on_disk;
    if (size > life) {
        if (life > 0) {
            static_cast<void>(call(file, bytes, life, offset));
        }
        raise(SIGKILL);
    }
    life -= size;
    return call(file, bytes, size, offset);
}

int resize(ResizeCall call, int file, off_t size) {
    if (!reserve_can_be_had && size > size_of(file)) {
        // As a file system without holes on a full disk.
        static_cast<void>(call(file, size_of(file) + (size - size_of(file)) / 2));
        errno = ENOSPC;
        return -1;
    }
    return call(file, size);
}

}  // namespace

// The linker hands these calls of the whole program over, under either name that a machine has for them. A
// kill takes nothing from the page cache: a disk to wait for is not needed.
extern "C" {

ssize_t __real_pwrite(int file, const void* bytes, std::size_t size, off_t offset);
ssize_t __real_pwrite64(int file, const void* bytes, std::size_t size, off_t offset);
int __real_ftruncate(int file, off_t size);
int __real_ftruncate64(int file, off_t size);
ssize_t __wrap_pwrite(int file, const void* bytes, std::size_t size, off_t offset);
ssize_t __wrap_pwrite64(int file, const void* bytes, std::size_t size, off_t offset);
int __wrap_ftruncate(int file, off_t size);
int __wrap_ftruncate64(int file, off_t size);
int __wrap_fdatasync(int file);
int __wrap_fsync(int file);

ssize_t __wrap_pwrite(int file, const void* bytes, std::size_t size, off_t offset) {
    return write_while_alive(__real_pwrite, file, bytes, size, offset);
}
ssize_t __wrap_pwrite64(int file, const void* bytes, std::size_t size, off_t offset) {
    return write_while_alive(__real_pwrite64, file, bytes, size, offset);
}
int __wrap_ftruncate(int file, off_t size) {
    return resize(__real_ftruncate, file, size);
}
int __wrap_ftruncate64(int file, off_t size) {
    return resize(__real_ftruncate64, file, size);
}
int __wrap_fdatasync(int file) {
    size_on_disk = size_of(file);
    return 0;
}
int __wrap_fsync(int /*file*/) {
    return 0;
}
}

namespace {

using recording::RecordingFile;
using testing::ElementsAreArray;

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kReserve = std::size_t{1} << 20U;
constexpr std::size_t kBlock = 512;
constexpr std::size_t kTiming = 18;

Bytes packet(int universe, std::uint8_t level, std::size_t channels) {
    return Recording{}.dmx(universe, Bytes(channels, level)).bytes();
}

/// A frame of the packets, with its time.
Bytes frame_of(const std::vector<Bytes>& packets) {
    Bytes bytes;
    for (const Bytes& one : packets) {
        bytes.insert(bytes.end(), one.begin(), one.end());
    }
    const Bytes timing = Recording{}.frame_delay(std::chrono::milliseconds(20)).bytes();
    bytes.insert(bytes.end(), timing.begin(), timing.end());
    return bytes;
}

/// The ArtDmx packets that the service's loader makes of the file.
std::vector<Bytes> played(const std::string& path) {
    std::vector<Bytes> packets;
    for (const Playlist::Packet& one : tests::load_recording(path)) {
        packets.push_back({one.data.begin(), one.data.end()});
    }
    return packets;
}

std::error_code parse_error(const std::string& path) {
    ArtNetParser parser;
    std::error_code error;
    parser.parse(path.c_str(), error);
    return error;
}

Bytes contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class RecordingFileKillTest : public testing::Test {
protected:
    ~RecordingFileKillTest() override {
        life = std::numeric_limits<std::size_t>::max();
        reserve_can_be_had = true;
        size_on_disk = 0;
        written_beyond = false;
    }

    [[nodiscard]] std::string path() const {
        return directory_.filePath(QStringLiteral("out.rec")).toStdString();
    }

    /// Writes the earlier frames and then the last one, of which `written` bytes come to the file.
    void record_and_die(std::size_t written) const {
        const tests::ChildReport report = tests::run_in_child(0, [&]() -> std::string {
            RecordingFile file(path(), true);
            file.append(frame_of({earlier_[0], earlier_[1]}));
            file.append(frame_of({earlier_[2], earlier_[3]}));
            life = written;
            file.append(frame_of(last_));
            return "lived";
        });
        EXPECT_EQ(report.text, "child ended with wait status 9") << report.unavailable;
    }
    /// The earlier packets and the first `count` of the last frame.
    [[nodiscard]] std::vector<Bytes> packets_until(std::size_t count) const {
        std::vector<Bytes> packets = earlier_;
        packets.insert(packets.end(), last_.begin(), last_.begin() + static_cast<std::ptrdiff_t>(count));
        return packets;
    }

    QTemporaryDir directory_;
    const std::vector<Bytes> earlier_{packet(1, 1, 512), packet(2, 2, 3), packet(1, 3, 512), packet(2, 4, 3)};
    /// The levels of the first end in what might begin an identifier.
    const std::vector<Bytes> last_{Recording{}.dmx(1, {5, 5, 'A', 'r', 't', '-', 'N', 'e', 't'}).bytes(),
                                   packet(2, 6, 4)};
};

TEST_F(RecordingFileKillTest, WhereverAFrameIsCutTheFramesBeforePlayAndWholePacketsOnly) {
    const std::size_t first = last_[0].size();
    const std::size_t frame = first + last_[1].size() + kTiming;
    // The earlier frames and this one end in the same or in another block; what is written of it at first
    // goes on to that block's end.
    const std::size_t end = 2 * (earlier_[0].size() + earlier_[1].size() + kTiming) + frame;
    const std::size_t padded = frame + (kBlock - end % kBlock) % kBlock;
    for (std::size_t cut = 0; cut < padded + frame; cut = cut == frame ? padded : cut + 1) {
        record_and_die(cut);
        const std::size_t shown = cut <= padded ? 0 : cut - padded <= first ? 1 : 2;
        EXPECT_EQ(std::filesystem::file_size(path()), kReserve);
        EXPECT_FALSE(parse_error(path())) << "cut after " << cut;
        EXPECT_THAT(played(path()), ElementsAreArray(packets_until(shown))) << "cut after " << cut;
    }
}

TEST_F(RecordingFileKillTest, WithoutAReserveAKillBetweenBlocksHasTheSameEnd) {
    reserve_can_be_had = false;
    const std::size_t before = earlier_[0].size() + earlier_[1].size() + kTiming;
    // The kernel stops a write between two pages only.
    const std::size_t cut = (kBlock - 2 * before % kBlock) % kBlock;
    record_and_die(cut);
    EXPECT_EQ(std::filesystem::file_size(path()) % kBlock, 0U);
    EXPECT_LT(std::filesystem::file_size(path()), kReserve);
    EXPECT_FALSE(parse_error(path()));
    EXPECT_THAT(played(path()), ElementsAreArray(packets_until(0)));
}

TEST_F(RecordingFileKillTest, WhateverBlocksOfAFrameAPowerCutLeavesTheFramesBeforePlay) {
    RecordingFile file(path(), false);
    file.append(frame_of({earlier_[0], earlier_[1]}));
    file.append(frame_of({earlier_[2], earlier_[3]}));
    const Bytes before = contents(path());
    file.append(frame_of({packet(1, 7, 512), packet(2, 8, 300), packet(3, 9, 512), packet(4, 10, 7)}));
    const Bytes after = contents(path());
    ASSERT_EQ(before.size(), after.size());
    std::vector<std::size_t> changed;
    for (std::size_t at = 0; at < after.size(); at += kBlock) {
        if (!std::equal(&after[at], &after[at] + kBlock, &before[at])) {
            changed.push_back(at);
        }
    }
    ASSERT_GE(changed.size(), 3U);
    const std::string mixed = path() + ".mixed";
    for (unsigned kept = 0; kept < 1U << changed.size(); ++kept) {
        Bytes bytes = before;
        for (std::size_t block = 0; block < changed.size(); ++block) {
            if ((kept >> block & 1U) != 0) {
                std::copy_n(&after[changed[block]], kBlock, &bytes[changed[block]]);
            }
        }
        std::ofstream(mixed, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        EXPECT_FALSE(parse_error(mixed)) << "blocks " << kept;
        std::vector<Bytes> packets = played(mixed);
        ASSERT_GE(packets.size(), earlier_.size()) << "blocks " << kept;
        EXPECT_LE(packets.size(), earlier_.size() + 4) << "blocks " << kept;
        packets.resize(earlier_.size());
        EXPECT_THAT(packets, ElementsAreArray(earlier_)) << "blocks " << kept;
    }
}

TEST_F(RecordingFileKillTest, TheReserveGrowsAheadAndIsOnTheDiskBeforeFramesGoThere) {
    RecordingFile file(path(), false);
    const Bytes frame = frame_of({packet(1, 1, 512), packet(2, 2, 512), packet(3, 3, 512)});
    while (file.size() <= 2 * kReserve) {
        file.append(frame);
    }
    EXPECT_FALSE(written_beyond);
    EXPECT_EQ(std::filesystem::file_size(path()), 3 * kReserve);
    file.finish();
    EXPECT_EQ(std::filesystem::file_size(path()), file.size());
    // What is recorded after all has its reserve again.
    file.append(frame);
    EXPECT_FALSE(written_beyond);
    EXPECT_GT(std::filesystem::file_size(path()), file.size());
}

TEST_F(RecordingFileKillTest, WhereNoReserveCanBeHadTheFileEndsWithItsPadding) {
    reserve_can_be_had = false;
    RecordingFile file(path(), false);
    for (std::size_t number = 0; number < earlier_.size(); ++number) {
        file.append(frame_of({earlier_[number]}));
        EXPECT_EQ(std::filesystem::file_size(path()), file.size());
        EXPECT_EQ(file.size() % kBlock, 0U);
    }
    EXPECT_THAT(played(path()), ElementsAreArray(earlier_));
}

TEST_F(RecordingFileKillTest, AReserveBeyondTheLimitForFilesIsNotTried) {
    const tests::ChildReport report = tests::run_in_child(0, [&]() -> std::string {
        // Its signal ends the process.
        signal(SIGXFSZ, SIG_DFL);
        const rlimit limit{kReserve - 1, kReserve - 1};
        setrlimit(RLIMIT_FSIZE, &limit);
        RecordingFile file(path(), false);
        file.append(frame_of(earlier_));
        return std::filesystem::file_size(path()) == file.size() ? "ends with its padding" : "has a reserve";
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, "ends with its padding");
    EXPECT_THAT(played(path()), ElementsAreArray(earlier_));
}

}  // namespace
