// What the service needs of its machine goes away: the data directory, the forwarder, file descriptors.

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "faults_test.h"
#include "support/fifo.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

using FaultsDataDirectoryTest = FaultsTest;

/// A directory that is somewhere else while the object lives.
class AwayDirectory {
public:
    explicit AwayDirectory(std::string path) : path_(std::move(path)) {
        std::filesystem::rename(path_, path_ + ".away");
    }
    AwayDirectory(const AwayDirectory&) = delete;
    AwayDirectory& operator=(const AwayDirectory&) = delete;
    ~AwayDirectory() { std::filesystem::rename(path_ + ".away", path_); }

private:
    std::string path_;
};

/// A port that nobody had a moment ago, out of the way of those that other tests keep.
int free_port() {
    constexpr int kFirst = 30000;
    constexpr int kPorts = 2700;
    for (int i = 0; i < kPorts; ++i) {
        const int port = kFirst + (getpid() * 16 + i) % kPorts;
        if (ForwarderSocket(port).bound()) {
            return port;
        }
    }
    ADD_FAILURE() << "no free port";
    return kFirst;
}

class FaultsForwarderTest : public FaultsTest {
protected:
    /// The real forwarder at the port where the service delivers, with a copy of all to the test.
    [[nodiscard]] std::unique_ptr<StartedProgram> start_forwarder() const {
        std::vector<std::string> environment = sanitizer_options();
        environment.emplace_back("LC_ALL=C.UTF-8");
        return std::make_unique<StartedProgram>(ProgramSettings{
            {INTEGRATION_FORWARDER, "--port", std::to_string(port_), "--rewrite", "192.0.2.0/24=127.0.0.2",
             "--tee", "127.0.0.1:" + std::to_string(copies_.port())},
            environment,
            output_file(),
            {}});
    }
    /// What all forwarders of the test have printed.
    [[nodiscard]] std::string forwarder_output() const {
        std::ifstream file(output_file());
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }
    /// An output string that leads to the forwarder.
    [[nodiscard]] std::string output() const { return "1:192.0.2.1:" + std::to_string(port_); }

    ForwarderSocket copies_;
    int port_ = free_port();

private:
    [[nodiscard]] std::string output_file() const { return installation().path() + "/forwarder.output"; }
};

class FaultsDescriptorTest : public FaultsTest {
protected:
    void SetUp() override {
        FaultsTest::SetUp();
#if defined(__SANITIZE_ADDRESS__)
        GTEST_SKIP()
            << "the undefined-behaviour sanitizer of this build reads an object's type through a pipe; "
               "where it gets none it takes the object for a wrong one and ends the service";
#endif
    }
    /// True while the service has a recording open.
    [[nodiscard]] bool is_loading() {
        const std::string descriptors = "/proc/" + std::to_string(service().program().pid()) + "/fd";
        for (const std::filesystem::directory_entry& descriptor :
             std::filesystem::directory_iterator(descriptors)) {
            // It may be closed by now.
            std::error_code gone;
            if (std::filesystem::read_symlink(descriptor.path(), gone).extension() == ".rec") {
                return true;
            }
        }
        return false;
    }
    /// Leaves the service `count` descriptors that it may still open.
    void leave_descriptors(int count) {
        // A recording plays before it is loaded, and its end would leave one descriptor more.
        ASSERT_TRUE(wait_until([this] { return !is_loading(); })) << "a recording is still open";
        const pid_t pid = service().program().pid();
        const std::string descriptors = "/proc/" + std::to_string(pid) + "/fd/";
        // The number of the first one beyond them.
        rlim_t limit = 0;
        for (int left = count; left >= 0; ++limit) {
            struct stat state {};
            if (lstat((descriptors + std::to_string(limit)).c_str(), &state) != 0 && left-- == 0) {
                break;
            }
        }
        rlimit limits{};
        ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, nullptr, &limits), 0);
        limits.rlim_cur = limit;
        ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, &limits, nullptr), 0) << std::strerror(errno);
    }
    [[nodiscard]] std::string failed(int packet) const {
        return "info [Repeater::do_render_work] Can't send packet (playlist_id:1, packet:" +
               std::to_string(packet) + ", universe:1) due to '" + std::strerror(EMFILE) + "', errno " +
               std::to_string(EMFILE);
    }

    ForwarderSocket wire_;
};

}  // namespace

TEST_F(FaultsDataDirectoryTest, WhatIsLoadedPlaysOnAndNewPlaysFindItAgainWhenItIsBack) {
    ForwarderSocket wire;
    Fifo fifo(show().path("first.rec"));
    show().recording("second.rec", Recording{}.dmx(1, {9}).fill_to(512).bytes());
    show().playlist(ShowPlaylist(1)
                        .loop(false)
                        .effect(ShowEffect("first.rec").output(wire.output("1")))
                        .effect(ShowEffect("second.rec").output(wire.output("1"))));
    add_playlist(2, false, Recording{}.dmx(1, {2}).fill_to(512), {wire.output("1")});
    // So short that it comes round many times while the directory is away.
    constexpr int kLoop = 5;
    ForwarderSocket loop;
    add_playlist(3, true, numbered_frames(2, kLoop), {loop.output("2")});
    start_with_beat();
    EXPECT_TRUE(controller().play(3));
    mark_log();
    const QDBusPendingCall play = call_later(QStringLiteral("play_playlist"), {1});
    fifo.open();
    Recording first;
    for (std::uint8_t level = 1; level <= 4; ++level) {
        first.dmx(1, {level}).frame_delay(20ms).fill_to(first.size() / 512 * 512 + 512);
    }
    ASSERT_TRUE(fifo.write(first.bytes()));
    ASSERT_TRUE(wait_for_answer(play));
    {
        const AwayDirectory away(show().root().toStdString());
        loop.arrived();
        ASSERT_TRUE(fifo.write(Recording{}.dmx(1, {5}).fill_to(512).bytes()));
        fifo.close();
        ASSERT_TRUE(controller().wait_for_stopped(1));
        std::vector<int> levels;
        for (const Frame& frame : wire.arrived()) {
            levels.push_back(frame.level(0));
        }
        EXPECT_THAT(levels, ElementsAre(1, 2, 3, 4, 5));
        EXPECT_THAT(trouble(), ElementsAre(parse_error_line("second.rec", 1)));
        expect_beat_goes_on();
        const std::vector<Frame> round = loop.next(4 * kLoop);
        for (std::size_t i = 1; i < round.size(); ++i) {
            EXPECT_EQ(mark_of(round[i]), (mark_of(round[i - 1]) + 1) % kLoop);
        }

        mark_log();
        EXPECT_FALSE(controller().play(2));
        EXPECT_EQ(trouble(), refused_by_files("[PlaylistParser::parse_desc] File (path:" + data_root() +
                                                  "/playlists/playlists.json) not found",
                                              "Playlist desc file not found"));
        expect_beat_goes_on();
    }
    EXPECT_TRUE(controller().play(2));
    EXPECT_EQ(wire.next().level(0), 2);
    expect_beat_goes_on(1);
}

TEST_F(FaultsForwarderTest, WithoutAForwarderTheShowRunsToItsEndUnheard) {
    add_playlist(1, false, numbered_frames(1, 10), {output()});
    start_with_beat();
    controller().set_log_level(6);
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().wait_for_stopped(1));
    controller().set_log_level(3);
    const Lines lines = log_since_mark();
    EXPECT_THAT(lines, Contains("info [Repeater::send_packet] Send packet (index:9, bytes:20, universe:1)"));
    EXPECT_THAT(lines, Not(Contains(HasSubstr("Can't send packet"))));
    EXPECT_EQ(trouble(), Lines{});
    expect_beat_goes_on();
}

TEST_F(FaultsForwarderTest, AKilledForwarderMissesWhatIsDueUntilItIsRestarted) {
    // More than three minutes, so that it does not come round however slow the machine is.
    add_playlist(1, true, numbered_frames(1, 10'000), {output()});
    start_with_beat();
    std::unique_ptr<StartedProgram> forwarder = start_forwarder();
    ASSERT_EQ(forwarder->start_error(), 0);
    EXPECT_TRUE(controller().play(1));
    mark_log();
    std::vector<Frame> before = copies_.next(10);
    for (std::size_t i = 1; i < before.size(); ++i) {
        EXPECT_EQ(mark_of(before[i]), mark_of(before[i - 1]) + 1);
    }
    forwarder->signal(SIGKILL);
    ASSERT_TRUE(forwarder->wait_end().has_value());
    int last = mark_of(before.back());
    for (const Frame& frame : copies_.arrived()) {
        last = mark_of(frame);
    }
    expect_beat_goes_on(20);
    EXPECT_TRUE(copies_.arrived().empty());

    forwarder = start_forwarder();
    const std::vector<Frame> after = copies_.next(10);
    // Twenty frames of the beat are as many of the show.
    EXPECT_GT(mark_of(after.front()), last + 15);
    for (std::size_t i = 1; i < after.size(); ++i) {
        EXPECT_EQ(mark_of(after[i]), mark_of(after[i - 1]) + 1);
    }
    EXPECT_EQ(log_since_mark(), Lines{});
    expect_beat_goes_on(1);

    forwarder->signal(SIGTERM);
    const std::optional<int> status = forwarder->wait_end();
    ASSERT_TRUE(status.has_value()) << "the forwarder does not end";
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << "wait status " << *status;
    // Its counters, and no sanitizer's report.
    const std::string output = forwarder_output();
    EXPECT_THAT(output, HasSubstr("received "));
    EXPECT_THAT(output, Not(HasSubstr("Sanitizer")));
    EXPECT_THAT(output, Not(HasSubstr("runtime error")));
}

TEST_F(FaultsDescriptorTest, WithoutADescriptorForTheSocketPacketsFailUntilOneIsFree) {
    // No beat: the socket must not be there yet.
    Fifo fifo(show().path("live.rec"));
    show().playlist(ShowPlaylist(1).loop(false).effect(ShowEffect("live.rec").output(wire_.output("1"))));
    start();
    controller().set_log_level(6);
    leave_descriptors(1);
    if (HasFatalFailure()) {
        return;
    }
    // The open recording takes the last descriptor, and gives it back at its end. Open on both sides first,
    // so that nobody waits.
    const int pipe = open(show().path("live.rec").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_NE(pipe, -1);
    constexpr int kFrames = 100;
    const std::vector<std::uint8_t> bytes = numbered_frames(1, kFrames).bytes();
    ASSERT_EQ(write(pipe, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    EXPECT_TRUE(controller().play(1));
    for (int packet = 0; packet < 3; ++packet) {
        EXPECT_TRUE(service().wait_for_log(failed(packet)));
    }
    EXPECT_TRUE(wire_.arrived().empty());
    close(pipe);
    ASSERT_TRUE(controller().wait_for_stopped(1));
    const std::vector<Frame> frames = wire_.arrived();
    ASSERT_FALSE(frames.empty());
    const int first = mark_of(frames.front());
    EXPECT_GE(first, 3);
    EXPECT_EQ(frames.size(), static_cast<std::size_t>(kFrames - first));
    for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(mark_of(frames[i]), first + static_cast<int>(i));
    }
    // Each packet was tried, and none before the first that went out did so unseen.
    const Lines lines = log_since_mark();
    for (int packet = 0; packet < first; ++packet) {
        EXPECT_THAT(lines, Contains(failed(packet)));
    }
    EXPECT_THAT(lines, Not(Contains(failed(first))));
}

TEST_F(FaultsDescriptorTest, WithoutADescriptorForItsFilesAPlayIsRefusedAsIfTheyWereMissing) {
    add_playlist(1, false, Recording{}.dmx(1, {7}).fill_to(512), {wire_.output("1")});
    start_with_beat();
    leave_descriptors(0);
    if (HasFatalFailure()) {
        return;
    }
    EXPECT_FALSE(controller().play(1));
    EXPECT_EQ(trouble(), refused_by_files("[PlaylistParser::parse_desc] File (path:" + data_root() +
                                              "/playlists/playlists.json) not found",
                                          "Playlist desc file not found"));
    expect_beat_goes_on();
    leave_descriptors(8);
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(wire_.next().level(0), 7);
    expect_beat_goes_on(1);
}
