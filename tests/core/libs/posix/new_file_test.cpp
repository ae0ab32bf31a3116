// Files that are there whole or not at all, on file systems that know nameless files and on others.
#include "posix/new_file.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <QTemporaryDir>

namespace {

/// Without /proc, no nameless file can be given a name.
bool proc_is_there = true;

/// How often data were brought to the disk.
int syncs = 0;

}  // namespace

extern "C" {

int __real_access(const char* path, int mode);

int __wrap_access(const char* path, int mode) {
    if (!proc_is_there && std::string_view(path).starts_with("/proc/")) {
        errno = ENOENT;
        return -1;
    }
    return __real_access(path, mode);
}

int __real_fsync(int descriptor);

int __wrap_fsync(int descriptor) {
    ++syncs;
    return __real_fsync(descriptor);
}
}

namespace {

using posix::NewFile;

constexpr auto kKeep = NewFile::Existing::Keep;
constexpr auto kReplace = NewFile::Existing::Replace;

std::string content_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void write_file(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

mode_t permissions_of(const std::string& path) {
    struct stat there {};
    return stat(path.c_str(), &there) == 0 ? there.st_mode & 07777 : 0;
}

/// The error that `step` throws; its text must begin with `path`.
template <typename Step>
std::error_code error_of(const std::string& path, const Step& step) {
    try {
        step();
    } catch (const std::system_error& error) {
        EXPECT_EQ(std::string(error.what()).find(path + ": "), 0U) << error.what();
        return error.code();
    }
    return {};
}

/// Each test runs with nameless files, where the system has them, and with hidden ones.
class NewFileTest : public testing::TestWithParam<bool> {
protected:
    NewFileTest() { proc_is_there = GetParam(); }
    ~NewFileTest() override { proc_is_there = true; }

    [[nodiscard]] std::string path(const std::string& name) const {
        return directory_.filePath(QString::fromStdString(name)).toStdString();
    }
    [[nodiscard]] std::size_t files() const {
        std::size_t count = 0;
        for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(path(""))) {
            ++count;
        }
        return count;
    }

    QTemporaryDir directory_;
};

TEST_P(NewFileTest, TheNameIsThereOnceTheFileIsWhole) {
    const std::string large(200'000, 'x');
    const mode_t mask = umask(027);
    {
        NewFile file(path("a"), kKeep);
        file.stream() << "begin " << large;
        file.stream().flush();
        EXPECT_FALSE(std::filesystem::exists(path("a")));
        file.stream() << " end";
        file.commit();
        EXPECT_EQ(content_of(path("a")), "begin " + large + " end");
    }
    umask(mask);
    EXPECT_EQ(permissions_of(path("a")), 0640U);
    EXPECT_EQ(files(), 1U);
}

TEST_P(NewFileTest, TheDiskIsWaitedForOnlyWhereTheFileIsToOutliveAPowerCut) {
    for (const auto durability : {NewFile::Durability::Durable, NewFile::Durability::Transient}) {
        syncs = 0;
        NewFile file(path("a"), kReplace);
        file.stream() << "text";
        file.commit(durability);
        EXPECT_EQ(content_of(path("a")), "text");
        EXPECT_EQ(syncs, durability == NewFile::Durability::Durable ? 1 : 0);
    }
    EXPECT_EQ(files(), 1U);
}

TEST_P(NewFileTest, WithoutCommitNothingIsLeftAndWhatWasThereStays) {
    write_file(path("b"), "old");
    {
        NewFile fresh(path("a"), kKeep);
        NewFile other(path("b"), kReplace);
        fresh.stream() << "new";
        other.stream() << "new";
        other.stream().flush();
    }
    EXPECT_EQ(files(), 1U);
    EXPECT_EQ(content_of(path("b")), "old");
}

TEST_P(NewFileTest, AFileThatIsThereIsKeptAlsoWhenItComesInTheMeantime) {
    write_file(path("a"), "old");
    EXPECT_EQ(error_of(path("a"), [&] { NewFile(path("a"), kKeep); }), std::errc::file_exists);
    {
        NewFile file(path("b"), kKeep);
        file.stream() << "new";
        write_file(path("b"), "other");
        EXPECT_EQ(error_of(path("b"), [&] { file.commit(); }), std::errc::file_exists);
    }
    EXPECT_EQ(content_of(path("a")), "old");
    EXPECT_EQ(content_of(path("b")), "other");
    EXPECT_EQ(files(), 2U);
}

TEST_P(NewFileTest, AReplacedFileIsReplacedWholeAndKeepsItsPermissions) {
    write_file(path("a"), "old, and longer");
    ASSERT_EQ(chmod(path("a").c_str(), 0604), 0);
    {
        NewFile file(path("a"), kReplace);
        file.stream() << "new";
        file.stream().flush();
        EXPECT_EQ(content_of(path("a")), "old, and longer");
        file.commit();
    }
    EXPECT_EQ(content_of(path("a")), "new");
    EXPECT_EQ(permissions_of(path("a")), 0604U);
    EXPECT_EQ(files(), 1U);
}

TEST_P(NewFileTest, ReplacingWhatIsNotThereMakesIt) {
    NewFile file(path("a"), kReplace);
    file.stream() << "new";
    file.commit();
    EXPECT_EQ(content_of(path("a")), "new");
    EXPECT_EQ(files(), 1U);
}

TEST_P(NewFileTest, ASymbolicLinkStaysOneAndWhatItLeadsToIsReplaced) {
    std::filesystem::create_directory(path("there"));
    write_file(path("there/a"), "old");
    std::filesystem::create_symlink("there/a", path("link"));
    {
        NewFile file(path("link"), kReplace);
        file.stream() << "new";
        file.commit();
    }
    EXPECT_TRUE(std::filesystem::is_symlink(path("link")));
    EXPECT_EQ(content_of(path("there/a")), "new");
}

TEST_P(NewFileTest, AFullDeviceIsAnErrorThatNamesIt) {
    NewFile file("/dev/full", kKeep);
    EXPECT_TRUE(file.is_special());
    EXPECT_EQ(error_of("/dev/full", [&] { file.stream() << std::string(1'000'000, 'x'); }),
              std::errc::no_space_on_device);
    EXPECT_NE(error_of("/dev/full", [&] { file.commit(); }), std::error_code())
        << "a failure is not forgotten";
    NewFile small("/dev/full", kKeep);
    small.stream() << "x";
    EXPECT_EQ(error_of("/dev/full", [&] { small.commit(); }), std::errc::no_space_on_device);
}

TEST_P(NewFileTest, AFifoGetsTheDataAndStays) {
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    std::string received;
    std::thread reader([&] { received = content_of(path("fifo")); });
    {
        NewFile file(path("fifo"), kKeep);
        EXPECT_TRUE(file.is_special());
        file.stream() << "data";
        file.commit();
    }
    reader.join();
    EXPECT_EQ(received, "data");
    EXPECT_TRUE(std::filesystem::is_fifo(path("fifo")));
}

TEST_P(NewFileTest, APlaceThatCannotBeWrittenToIsAnErrorAtOnce) {
    EXPECT_EQ(error_of(path("none/a"), [&] { NewFile(path("none/a"), kKeep); }),
              std::errc::no_such_file_or_directory);
    EXPECT_EQ(error_of(path(""), [&] { NewFile(path(""), kReplace); }), std::errc::is_a_directory);
    write_file(path("file"), "");
    EXPECT_EQ(error_of(path("file/a"), [&] { NewFile(path("file/a"), kKeep); }), std::errc::not_a_directory);
}

INSTANTIATE_TEST_SUITE_P(Kinds, NewFileTest, testing::Values(true, false),
                         [](const testing::TestParamInfo<bool>& kind) {
                             return kind.param ? "Nameless" : "Hidden";
                         });

}  // namespace
