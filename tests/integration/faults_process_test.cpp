// The process itself: the bus is killed under it, it is stopped and continued, or its memory ends.

#include <csignal>
#include <cstring>
#include <fstream>

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "faults_test.h"
#include "support/fifo.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using FaultsBusTest = FaultsTest;

class FaultsStoppedTest : public FaultsTest {
protected:
    /// The process's state as the kernel shows it in one letter.
    [[nodiscard]] char state() {
        std::ifstream file("/proc/" + std::to_string(service().program().pid()) + "/stat");
        std::string line;
        std::getline(file, line);
        // The name before it may hold anything but ends at the last bracket.
        const std::size_t bracket = line.rfind(')');
        return bracket == std::string::npos ? '?' : line.at(bracket + 2);
    }

    ForwarderSocket wire_;
};

class FaultsMemoryTest : public FaultsTest {
protected:
    void SetUp() override {
        if (kSanitized) {
            GTEST_SKIP() << "a sanitizer takes more address space than any limit could leave it";
        }
    }
    /// No core of a process that is meant to fail.
    static ServiceSettings without_core() {
        ServiceSettings settings;
        settings.prepare = [] {
            const rlimit none{0, 0};
            return setrlimit(RLIMIT_CORE, &none) == 0 ? 0 : errno;
        };
        return settings;
    }
    /// Lets the service have this much more memory than it has now.
    void leave_memory(rlim_t bytes) {
        const pid_t pid = service().program().pid();
        std::ifstream file("/proc/" + std::to_string(pid) + "/statm");
        rlim_t pages = 0;
        ASSERT_TRUE(file >> pages);
        rlimit limits{};
        ASSERT_EQ(prlimit(pid, RLIMIT_AS, nullptr, &limits), 0);
        limits.rlim_cur = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + bytes;
        ASSERT_EQ(prlimit(pid, RLIMIT_AS, &limits, nullptr), 0) << std::strerror(errno);
    }
    void give_all_memory_back() {
        rlimit limits{};
        const pid_t pid = service().program().pid();
        ASSERT_EQ(prlimit(pid, RLIMIT_AS, nullptr, &limits), 0);
        limits.rlim_cur = limits.rlim_max;
        ASSERT_EQ(prlimit(pid, RLIMIT_AS, &limits, nullptr), 0) << std::strerror(errno);
    }
    /// Tells of that many bytes of nodes, and expects the process to abort over them while the beat plays.
    void expect_abort_over_nodes(rlim_t left, rlim_t bytes) {
        start_with_beat(without_core());
        Discovery discovery(bus().address());
        std::string message;
        for (rlim_t node = 0; message.size() < bytes; ++node) {
            message += "1:5:10." + std::to_string(node / 65536) + "." + std::to_string(node / 256 % 256) +
                       "." + std::to_string(node % 256) + ":6454;";
        }
        leave_memory(left);
        if (HasFatalFailure()) {
            return;
        }
        discovery.announce(message);
        const std::optional<int> status = wait_own_end();
        ASSERT_TRUE(status.has_value());
        EXPECT_TRUE(WIFSIGNALED(*status) && WTERMSIG(*status) == SIGABRT) << *status;
        EXPECT_THAT(service().output(), HasSubstr(kAborted));
        expect_beat_was_whole();
    }

    static constexpr char kAborted[] = "terminate called after throwing an instance of 'std::bad_alloc'";
    static constexpr rlim_t kMebibyte = 1024 * 1024;
    ForwarderSocket wire_;
};

}  // namespace

TEST_F(FaultsBusTest, WhenTheBusIsKilledTheShowPlaysOnUnreachable) {
    ForwarderSocket wire;
    add_playlist(1, false, numbered_frames(1, 50), {wire.output("1")});
    // One whose end the test has in hand.
    ForwarderSocket ending_wire;
    Fifo ending(show().path("ending.rec"));
    show().playlist(
        ShowPlaylist(2).loop(false).effect(ShowEffect("ending.rec").output(ending_wire.output("1"))));
    start_with_beat();
    const QDBusPendingCall play = call_later(QStringLiteral("play_playlist"), {2});
    ending.open();
    constexpr int kEndingFrames = 5;
    ASSERT_TRUE(ending.write(numbered_frames(1, kEndingFrames).bytes()));
    ASSERT_TRUE(wait_for_answer(play));
    EXPECT_TRUE(controller().play(1));
    mark_log();
    EXPECT_EQ(mark_of(wire.next()), 0);
    kill_bus();
    for (int frame = 1; frame < 50; ++frame) {
        EXPECT_EQ(mark_of(wire.next()), frame);
    }
    expect_beat_goes_on(20);

    // A new bus at the same place does not see it.
    const SessionBus again(installation().path(), "", &bus());
    ASSERT_TRUE(again.running());
    Controller other(again.address());
    EXPECT_EQ(other.call_engine(QStringLiteral("stop")).type(), QDBusMessage::ErrorMessage);
    ending.close();
    for (int frame = 0; frame < kEndingFrames; ++frame) {
        EXPECT_EQ(mark_of(ending_wire.next()), frame);
    }
    expect_beat_goes_on(20);
    EXPECT_THAT(other.stopped(), IsEmpty()) << "an end is not signalled there";
    EXPECT_EQ(other.call_engine(QStringLiteral("stop")).type(), QDBusMessage::ErrorMessage);
    EXPECT_TRUE(service().program().running());
    EXPECT_EQ(log_since_mark(), Lines{});
}

TEST_F(FaultsStoppedTest, AfterAStopOfSecondsTheMissedFramesComeBackToBackAndTheOthersWhenTheyWereDue) {
    constexpr int kFrames = 80;
    constexpr auto kInterval = 50ms;
    Recording recording;
    for (std::uint8_t frame = 0; frame < kFrames; ++frame) {
        recording.dmx(1, {frame}).frame_delay(kInterval).fill_to((recording.size() / 512 + 1) * 512);
    }
    add_playlist(1, false, recording, {wire_.output("1")});
    start_with_beat();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(controller().play(1));
    mark_log();
    std::vector<Frame> frames = wire_.next(5);
    const auto stopped = std::chrono::steady_clock::now();
    service().program().signal(SIGSTOP);
    ASSERT_TRUE(wait_until([this] { return state() == 'T'; }));
    for (const Frame& frame : wire_.arrived()) {
        frames.push_back(frame);
    }
    const std::size_t before_stop = frames.size();
    const QDBusPendingCall level = ask_level();
    // Until forty frames have been missed.
    const auto resume = std::chrono::steady_clock::now() + 40 * kInterval;
    ASSERT_TRUE(wait_until([resume] { return std::chrono::steady_clock::now() >= resume; }));
    EXPECT_FALSE(answered(level));
    EXPECT_TRUE(wire_.arrived().empty());

    service().program().signal(SIGCONT);
    allow_standstill(std::chrono::steady_clock::now() - stopped);
    for (const Frame& frame : wire_.next(kFrames - static_cast<int>(before_stop))) {
        frames.push_back(frame);
    }
    EXPECT_TRUE(wait_for_answer(level));
    EXPECT_TRUE(controller().wait_for_stopped(1));
    for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i].level(0), static_cast<int>(i));
        EXPECT_GE(frames[i].arrival - begin, static_cast<int>(i) * kInterval) << "frame " << i;
    }
    // Paced, none of the thirty-nine intervals would be shorter than it was recorded. Some may be longer all
    // the same, where the machine is busy.
    int shorter = 0;
    for (std::size_t i = before_stop; i < before_stop + 39; ++i) {
        shorter += frames.at(i + 1).arrival - frames.at(i).arrival < kInterval / 2 ? 1 : 0;
    }
    EXPECT_GE(shorter, 30);
    EXPECT_EQ(trouble(), Lines{});
    expect_beat_goes_on(10);
}

TEST_F(FaultsMemoryTest, WhenMemoryEndsWhileARecordingLoadsTheProcessAborts) {
    Fifo fifo(show().path("live.rec"));
    show().playlist(ShowPlaylist(1).loop(false).effect(ShowEffect("live.rec").output(wire_.output("1"))));
    start_with_beat(without_core());
    leave_memory(128 * kMebibyte);
    if (HasFatalFailure()) {
        return;
    }
    const QDBusPendingCall play = call_later(QStringLiteral("play_playlist"), {1});
    fifo.open();
    const std::vector<std::uint8_t> part =
        Recording{}.dmx(1, std::vector<std::uint8_t>(512, 1)).frame_delay(1h).bytes();
    // More than the limit leaves, were it only ever read.
    constexpr std::size_t kMost = std::size_t{1024} * 1024 * 1024;
    std::size_t written = 0;
    while (written < kMost && fifo.write(part)) {
        written += part.size();
    }
    EXPECT_LT(written, kMost);
    const std::optional<int> status = wait_own_end();
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(WIFSIGNALED(*status) && WTERMSIG(*status) == SIGABRT) << *status;
    EXPECT_THAT(service().output(), HasSubstr(kAborted));
    EXPECT_EQ(trouble(), Lines{});
    expect_beat_was_whole();
    // It played until then.
    EXPECT_EQ(wire_.next().level(0), 1);
}

TEST_F(FaultsMemoryTest, WhenMemoryEndsWhileADescriptionIsReadThePlayIsRefused) {
    add_playlist(1, false, Recording{}.dmx(1, {7}).fill_to(512), {wire_.output("1")});
    start_with_beat(without_core());
    show().file("playlists/1.json", "[" + std::string(64 * kMebibyte, ' ') + "]");
    leave_memory(32 * kMebibyte);
    if (HasFatalFailure()) {
        return;
    }
    EXPECT_FALSE(controller().play(1));
    EXPECT_THAT(trouble(),
                ElementsAre("info [Repeater::load_playlist] Failed to load cuelist (err:std::bad_alloc)",
                            "info [Repeater::play_playlist] Failed to load cuelist"));
    expect_not_loaded(1);
    expect_beat_goes_on(20);
}

TEST_F(FaultsMemoryTest, WhenMemoryEndsWhileANodeMessageIsReadItIsReadOnceThereIsMemoryAgain) {
    ServiceSettings settings = without_core();
    // Else the bus library finds room in what its thread's allocator has set aside, for a message that a bus
    // lets through by default.
    settings.environment.push_back("MALLOC_ARENA_MAX=1");
    add_playlist(1, true, Recording{}.dmx(5, {7}).frame_delay(10ms).dmx(5, {8}).fill_to(512), {});
    start_with_beat(settings);
    EXPECT_TRUE(controller().play(1));
    mark_log();
    Discovery discovery(bus().address());
    leave_memory(4 * kMebibyte);
    if (HasFatalFailure()) {
        return;
    }
    discovery.announce(std::string(16 * kMebibyte, 'x') + ";1:5:10.0.0.1:" + std::to_string(wire_.port()));
    // The bus library's own wait for memory, which Qt tells of at each turn.
    ASSERT_TRUE(service().wait_for_log("info OUT OF MEM"));
    const QDBusPendingCall level = ask_level();
    expect_beat_goes_on(20);
    EXPECT_FALSE(answered(level));
    EXPECT_TRUE(wire_.arrived().empty());

    give_all_memory_back();
    EXPECT_TRUE(wait_for_answer(level));
    EXPECT_EQ(wire_.next().ip(), "10.0.0.1");
    expect_beat_goes_on(20);
    EXPECT_EQ(trouble(), Lines{});
}

TEST_F(FaultsMemoryTest, WhenMemoryEndsOnceANodeMessageIsReadTheProcessAborts) {
    // On Qt's thread, which makes a text of it.
    expect_abort_over_nodes(4 * kMebibyte, 16 * kMebibyte);
    EXPECT_THAT(trouble(),
                ElementsAre(HasSubstr("Qt has caught an exception thrown from an event handler.")));
}

TEST_F(FaultsMemoryTest, WhenMemoryEndsWhileANodeMessageIsTakenOverTheProcessAborts) {
    // On the main thread, which makes lists of it.
    expect_abort_over_nodes(72 * kMebibyte, 16 * kMebibyte);
    EXPECT_EQ(trouble(), Lines{});
}
