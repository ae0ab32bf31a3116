// The file of a capture: whole at every moment, also when the disk is not.
#include "recording_file.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>
#include <csignal>

#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "artnet/artnet_parser.h"
#include "cli/failure.h"
#include "frame_writer.h"
#include "posix/file_descriptor.h"
#include "support/artnet_sender.h"
#include "support/child_process.h"
#include "support/loaded_recording.h"
#include "support/recording.h"

using namespace std::chrono_literals;

namespace {

/// What the system does not offer for the length of a test.
bool proc_is_there = true;
bool permissions_can_be_set = true;
bool disk_is_well = true;

}  // namespace

// The linker hands these calls of the whole program over: what fails so is not to be had otherwise.
extern "C" {

int __real_access(const char* path, int mode);
int __wrap_access(const char* path, int mode);
int __real_fchmod(int file, mode_t mode);
int __wrap_fchmod(int file, mode_t mode);
int __real_fdatasync(int file);
int __wrap_fdatasync(int file);

int __wrap_access(const char* path, int mode) {
    if (!proc_is_there && std::string_view(path).starts_with("/proc/")) {
        errno = ENOENT;
        return -1;
    }
    return __real_access(path, mode);
}

int __wrap_fchmod(int file, mode_t mode) {
    if (!permissions_can_be_set) {
        errno = EPERM;
        return -1;
    }
    return __real_fchmod(file, mode);
}

int __wrap_fdatasync(int file) {
    if (!disk_is_well) {
        errno = EIO;
        return -1;
    }
    return __real_fdatasync(file);
}
}

namespace {

using recording::FrameWriter;
using recording::RecordingFile;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::uint8_t> contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A frame of one universe whose levels are its number.
std::vector<std::uint8_t> frame(std::uint8_t number, std::size_t channels = 512) {
    return Recording{}.dmx(1, std::vector<std::uint8_t>(channels, number)).frame_delay(20ms).bytes();
}

/// First level of every packet that the loader makes of the file.
std::vector<int> played(const std::string& path) {
    std::vector<int> levels;
    for (const Playlist::Packet& packet : tests::load_recording(path)) {
        levels.push_back(packet.data.at(18));
    }
    return levels;
}

std::string failure_of(const std::function<void()>& step) {
    try {
        step();
    } catch (const cli::Failure& failure) {
        return failure.what();
    }
    return "";
}

class RecordingFileTest : public testing::Test {
protected:
    ~RecordingFileTest() override {
        proc_is_there = true;
        permissions_can_be_set = true;
        disk_is_well = true;
    }

    [[nodiscard]] std::string path(const char* name = "out.rec") const {
        return directory_.filePath(QString::fromLatin1(name)).toStdString();
    }
    [[nodiscard]] std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (const auto& entry : std::filesystem::directory_iterator(directory_.path().toStdString())) {
            result.push_back(entry.path().filename().string());
        }
        return result;
    }

    QTemporaryDir directory_;
};

TEST_F(RecordingFileTest, TheFileIsWholeAfterEveryFrameWithZerosBehindItAndPaddedInTheEnd) {
    std::optional<RecordingFile> file(std::in_place, path(), false);
    std::vector<std::uint8_t> written;
    std::vector<int> expected;
    for (int number = 0; number < 40; ++number) {
        // All lengths modulo 512 that matter: padding of nothing and of nearly a block.
        const std::vector<std::uint8_t> bytes =
            frame(static_cast<std::uint8_t>(number), static_cast<std::size_t>(number * 13 % 512 + 1));
        file->append(bytes);
        written.insert(written.end(), bytes.begin(), bytes.end());
        expected.push_back(number);
        const std::vector<std::uint8_t> found = contents(path());
        ASSERT_GT(found.size(), file->size());
        EXPECT_EQ(file->size() % 512, 0U);
        EXPECT_LT(file->size() - written.size(), 512U);
        EXPECT_TRUE(std::equal(written.begin(), written.end(), found.begin()));
        EXPECT_TRUE(std::all_of(found.begin() + static_cast<std::ptrdiff_t>(written.size()), found.end(),
                                [](std::uint8_t byte) { return byte == 0; }));
    }
    EXPECT_EQ(played(path()), expected) << "nothing is repeated, nothing missing";
    const std::uint64_t size = file->size();
    file.reset();
    EXPECT_EQ(contents(path()).size(), size);
    EXPECT_EQ(played(path()), expected);
}

TEST_F(RecordingFileTest, WithoutAFrameNothingIsLeftBehind) {
    { const RecordingFile file(path(), false); }
    EXPECT_THAT(names(), ElementsAre());
}

TEST_F(RecordingFileTest, BeforeTheFirstFrameThereIsNoNameThatAKillCouldLeaveBehind) {
    const posix::FileDescriptor nameless(
        open(directory_.path().toStdString().c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    if (!nameless) {
        GTEST_SKIP() << "no nameless files here";
    }
    const RecordingFile file(path(), false);
    EXPECT_THAT(names(), ElementsAre());
}

TEST_F(RecordingFileTest, WithoutNamelessFilesATemporaryOneStandsBesideIt) {
    proc_is_there = false;
    { const RecordingFile file(path(), false); }
    EXPECT_THAT(names(), ElementsAre());
    RecordingFile file(path(), false);
    EXPECT_THAT(names(), ElementsAre(testing::StartsWith("out.rec.part-")));
    file.append(frame(1));
    EXPECT_THAT(names(), ElementsAre("out.rec"));
    EXPECT_THAT(played(path()), ElementsAre(1));
    EXPECT_THAT(failure_of([&] { RecordingFile(path(), false); }), HasSubstr("is there already"));
    RecordingFile replacing(path(), true);
    replacing.append(frame(2));
    EXPECT_THAT(played(path()), ElementsAre(2));
    EXPECT_THAT(names(), ElementsAre("out.rec"));
}

TEST_F(RecordingFileTest, AFileThatCannotBeMadeLeavesNothingBehind) {
    permissions_can_be_set = false;
    for (const bool nameless : {true, false}) {
        proc_is_there = nameless;
        EXPECT_THAT(failure_of([&] { RecordingFile(path(), false); }),
                    HasSubstr("out.rec: Operation not permitted"));
        EXPECT_THAT(names(), ElementsAre());
    }
}

TEST_F(RecordingFileTest, OfADiskThatFailsNothingIsPromised) {
    RecordingFile file(path(), false);
    file.append(frame(1));
    disk_is_well = false;
    EXPECT_THAT(
        failure_of([&] { file.sync(); }),
        testing::EndsWith("out.rec: Input/output error; how much of the 1024 bytes recorded until then "
                          "has come to the disk is not known"));
}

TEST_F(RecordingFileTest, AnExistingFileIsRefusedAndKept) {
    ASSERT_TRUE(Recording{}.dmx(1, {1}).write(path()));
    EXPECT_THAT(failure_of([&] { RecordingFile(path(), false); }),
                HasSubstr("out.rec: is there already (--force"));
    EXPECT_THAT(names(), ElementsAre("out.rec"));
    EXPECT_THAT(played(path()), ElementsAre(1));
}

TEST_F(RecordingFileTest, AFileThatComesInBetweenIsKept) {
    RecordingFile file(path(), false);
    ASSERT_TRUE(Recording{}.dmx(1, {1}).fill_to(512).write(path()));
    EXPECT_THAT(failure_of([&] { file.append(frame(2)); }), HasSubstr("is there already"));
    EXPECT_THAT(played(path()), ElementsAre(1));
}

TEST_F(RecordingFileTest, AReplacedFileStaysUntilTheFirstFrameAndKeepsItsPermissions) {
    ASSERT_TRUE(Recording{}.dmx(1, {1}).fill_to(512).write(path()));
    std::filesystem::permissions(path(),
                                 std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    std::filesystem::create_symlink(path(), path("link"));
    RecordingFile file(path("link"), true);
    EXPECT_THAT(played(path()), ElementsAre(1));
    file.append(frame(2));
    EXPECT_THAT(played(path()), ElementsAre(2));
    EXPECT_TRUE(std::filesystem::is_symlink(path("link")));
    EXPECT_EQ(std::filesystem::status(path()).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(RecordingFileTest, DevicesDirectoriesAndUnreachablePlacesAreRefusedByName) {
    EXPECT_THAT(failure_of([] { RecordingFile("/dev/full", true); }),
                HasSubstr("/dev/full: expected a regular file"));
    EXPECT_THAT(failure_of([&] { RecordingFile(path("."), true); }), HasSubstr("expected a regular file"));
    EXPECT_THAT(failure_of([&] { RecordingFile(path("no/out.rec"), false); }),
                HasSubstr("no/out.rec: No such file or directory"));
}

TEST_F(RecordingFileTest, AFrameThatFindsNoRoomIsTakenBackAndTheRestPlays) {
    // The limit cuts a frame in two, as a full disk does.
    const std::string out = path();
    const tests::ChildReport report = tests::run_in_child(0, [&]() -> std::string {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{2100, 2100};
        setrlimit(RLIMIT_FSIZE, &limit);
        RecordingFile file(out, false);
        return failure_of([&] {
            for (std::uint8_t number = 1; number < 20; ++number) {
                file.append(frame(number));
            }
        });
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_THAT(report.text,
                HasSubstr("out.rec: File too large; the 2048 bytes recorded until then are whole"));
    EXPECT_EQ(contents(out).size(), 2048U);
    EXPECT_THAT(played(out), ElementsAre(1, 2, 3));
}

TEST_F(RecordingFileTest, AFullDiskEndsTheWritingWithItsReasonAndWhatIsThereIsWhole) {
    const std::string mount_point = directory_.path().toStdString();
    const tests::ChildReport report = tests::run_in_child(CLONE_NEWNS, [&]() -> std::string {
        if (mount("tmpfs", mount_point.c_str(), "tmpfs", 0, "size=64k") != 0) {
            throw tests::Unavailable("no small file system here");
        }
        const std::string out = mount_point + "/out.rec";
        RecordingFile file(out, false);
        FrameWriter writer(file, 0s);
        for (int number = 0; number < 200; ++number) {
            writer.push({frame(static_cast<std::uint8_t>(number)), number * 20ms});
        }
        pollfd wait{writer.failure_descriptor(), POLLIN, 0};
        if (poll(&wait, 1, 60'000) != 1) {
            return "no failure";
        }
        std::string text = failure_of([&] { writer.finish(); });
        const std::vector<std::uint8_t> bytes = contents(out);
        ArtNetParser parser;
        int packets = 0;
        parser.on_artdmx = [&](ArtDmx& dmx) { packets += dmx.Data[0] == packets ? 1 : 1000; };
        std::error_code error;
        parser.parse(out.c_str(), error);
        const int fitting = 65536 / 548;
        text += error ? " broken" : " whole";
        text += packets >= fitting - 8 && packets <= fitting ? " all" : " " + std::to_string(packets);
        const auto written = static_cast<int>(writer.written().frames);
        text +=
            written == packets && writer.written().duration == (written - 1) * 20ms + 30ms ? " counted" : "";
        return text + (bytes.size() % 512 == 0 ? " padded" : " cut");
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_THAT(report.text, HasSubstr("No space left on device"));
    EXPECT_THAT(report.text,
                HasSubstr("bytes recorded until then are whole and play whole all counted padded"));
}

TEST_F(RecordingFileTest, ADiskThatStaysBehindHasFailedAndOneThatKeepsUpHasNot) {
    RecordingFile file(path(), false);
    const std::vector<std::uint8_t> bytes = frame(1);
    FrameWriter writer(file, 0s, 2 * bytes.size());
    pollfd failed{writer.failure_descriptor(), POLLIN, 0};
    // Each is written before the next one comes, however many there are.
    for (std::uint64_t number = 1; number <= 10; ++number) {
        writer.push({bytes, 0ms});
        ASSERT_TRUE(eventually([&] { return tests::packets_in(path()) == number; }));
    }
    // What is on the disk is taken off a moment later; two frames always find room.
    ASSERT_EQ(poll(&failed, 1, 0), 0);
    writer.push({std::vector<std::uint8_t>(2 * bytes.size() + 1), 0ms});
    EXPECT_EQ(poll(&failed, 1, 0), 1);
    EXPECT_THAT(failure_of([&] { writer.finish(); }), HasSubstr("the disk does not keep up"));
    EXPECT_THAT(played(path()), testing::Each(1));
}

TEST_F(RecordingFileTest, TheWriterWritesEverythingBeforeItEnds) {
    RecordingFile file(path(), false);
    std::vector<int> expected;
    {
        FrameWriter writer(file, 1h);
        for (int number = 0; number < 200; ++number) {
            writer.push({frame(static_cast<std::uint8_t>(number), 2), number * 20ms});
            expected.push_back(number);
        }
        writer.finish();
        EXPECT_EQ(writer.written().frames, 200U);
        EXPECT_EQ(writer.written().duration, 199 * 20ms + 30ms);
    }
    EXPECT_EQ(played(path()), expected);
    EXPECT_EQ(contents(path()).size(), file.size()) << "the reserve goes when the writing ends";
}

}  // namespace
