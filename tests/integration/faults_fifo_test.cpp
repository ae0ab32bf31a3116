// Recordings that are not simply there: FIFOs with slow, vanished and absent writers, and such as never end.

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "faults_test.h"
#include "support/fifo.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

/// One frame a block: the parser takes blocks of 512 bytes.
std::vector<std::uint8_t> block(std::uint8_t level, std::chrono::milliseconds delay = 20ms) {
    return Recording{}.dmx(1, {level}).frame_delay(delay).fill_to(512).bytes();
}

/// Several of them, with levels from `first` on.
std::vector<std::uint8_t> blocks(int first, int count, std::chrono::milliseconds delay = 20ms) {
    std::vector<std::uint8_t> all;
    for (int i = first; i < first + count; ++i) {
        const std::vector<std::uint8_t> one = block(static_cast<std::uint8_t>(i), delay);
        all.insert(all.end(), one.begin(), one.end());
    }
    return all;
}

/// A number in a file of the process's directory under /proc; -1 without it.
long long process_number(pid_t pid, const std::string& file, const std::string& name) {
    std::ifstream lines("/proc/" + std::to_string(pid) + "/" + file);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(name + ":")) {
            return std::stoll(line.substr(name.size() + 1));
        }
    }
    return -1;
}

class FaultsFifoTest : public FaultsTest {
protected:
    /// Playlist 1 plays this one recording.
    void add_recording_later(const std::string& path) {
        show().playlist(ShowPlaylist(1).loop(false).effect(ShowEffect(path).output(wire_.output("1"))));
    }
    [[nodiscard]] std::string loading(const std::string& path) const {
        return "info [PlaylistLoader::load_effect] Load effect (" + data_root() + "/" + path + ")";
    }
    [[nodiscard]] QDBusPendingCall play_later() { return call_later(QStringLiteral("play_playlist"), {1}); }
    [[nodiscard]] QDBusPendingCall stop_later() { return call_later(QStringLiteral("stop_playlist"), {1}); }
    [[nodiscard]] static bool result(const QDBusPendingCall& call) {
        return call.reply().arguments().value(0).toBool();
    }

    ForwarderSocket wire_;
};

}  // namespace

TEST_F(FaultsFifoTest, WithoutAWriterThePlayAndAllCallsBehindItWaitUntilOneComes) {
    Fifo fifo(show().path("live.rec"));
    add_recording_later("live.rec");
    // Another playlist, whose end the test has in hand, too.
    Fifo ending(show().path("ending.rec"));
    ForwarderSocket ending_wire;
    show().playlist(
        ShowPlaylist(2).loop(false).effect(ShowEffect("ending.rec").output(ending_wire.output("1"))));
    start_with_beat();
    const QDBusPendingCall play_ending = call_later(QStringLiteral("play_playlist"), {2});
    ending.open();
    ASSERT_TRUE(ending.write(blocks(1, 5)));
    ASSERT_TRUE(wait_for_answer(play_ending));
    const QDBusPendingCall play = play_later();
    ASSERT_TRUE(service().wait_for_log(loading("live.rec")));
    const QDBusPendingCall asked = ask_level();
    ending.close();
    for (int level = 1; level <= 5; ++level) {
        EXPECT_EQ(ending_wire.next().level(0), level);
    }
    expect_beat_goes_on(20);
    EXPECT_FALSE(answered(play));
    EXPECT_FALSE(answered(asked));
    EXPECT_THAT(controller().stopped(), testing::IsEmpty());
    EXPECT_EQ(trouble(), Lines{});

    fifo.open();
    fifo.close();
    ASSERT_TRUE(wait_for_answer(play));
    EXPECT_FALSE(result(play));
    EXPECT_TRUE(wait_for_answer(asked));
    EXPECT_TRUE(controller().wait_for_stopped(1));
    EXPECT_THAT(controller().stopped(), ElementsAre(2));
    EXPECT_EQ(trouble(), refused_by_recording("live.rec", 3));
    expect_not_loaded(1);
    expect_beat_goes_on();
}

TEST_F(FaultsFifoTest, WithoutAWriterNodeMessagesWaitTooAndNoCallIsTakenBack) {
    Fifo fifo(show().path("live.rec"));
    add_recording_later("live.rec");
    ForwarderSocket later_wire;
    add_playlist(2, true, Recording{}.dmx(1, {7}).frame_delay(10ms).dmx(1, {8}).fill_to(512),
                 {later_wire.output("1")});
    ForwarderSocket node_wire;
    add_playlist(3, true, Recording{}.dmx(5, {7}).frame_delay(10ms).dmx(5, {8}).fill_to(512), {});
    start_with_beat();
    Discovery discovery(bus().address());
    EXPECT_TRUE(controller().play(3));
    const QDBusPendingCall play = play_later();
    ASSERT_TRUE(service().wait_for_log(loading("live.rec")));
    const QDBusPendingCall given_up = call_impatiently(QStringLiteral("play_playlist"), {2});
    discovery.announce("1:5:10.0.0.1:" + std::to_string(node_wire.port()));
    ASSERT_TRUE(wait_until([&given_up] { return !answered(given_up) && given_up.isFinished(); }));
    expect_beat_goes_on(20);
    EXPECT_TRUE(later_wire.arrived().empty());
    EXPECT_TRUE(node_wire.arrived().empty());

    fifo.open();
    fifo.close();
    ASSERT_TRUE(wait_for_answer(play));
    EXPECT_EQ(later_wire.next().universe(), 1) << "its caller had gone, the call had not";
    EXPECT_EQ(node_wire.next().ip(), "10.0.0.1");
    expect_beat_goes_on();
}

TEST_F(FaultsFifoTest, ASlowWriterHoldsUpItsOwnPlaylistAndItsStopOnly) {
    Fifo fifo(show().path("live.rec"));
    add_recording_later("live.rec");
    start_with_beat();
    const QDBusPendingCall play = play_later();
    fifo.open();
    // Not yet more than 50 ms: of three frames the last is held back.
    ASSERT_TRUE(fifo.write(blocks(1, 3)));
    expect_beat_goes_on();
    EXPECT_FALSE(answered(play));
    ASSERT_TRUE(fifo.write(blocks(4, 1)));
    ASSERT_TRUE(wait_for_answer(play));
    EXPECT_TRUE(result(play));
    for (int level = 1; level <= 3; ++level) {
        EXPECT_EQ(wire_.next().level(0), level);
    }
    // The fourth is held back until the fifth comes, however long that takes.
    expect_beat_goes_on(20);
    EXPECT_TRUE(wire_.arrived().empty());
    ASSERT_TRUE(fifo.write(blocks(5, 1)));
    EXPECT_EQ(wire_.next().level(0), 4);

    const QDBusPendingCall stop = stop_later();
    ASSERT_TRUE(service().wait_for_log("info [Repeater::stop_playlist] Stop playlist (playlist_id:1)"));
    expect_beat_goes_on(20);
    EXPECT_FALSE(answered(stop));
    ASSERT_TRUE(fifo.write(blocks(6, 1)));
    EXPECT_TRUE(wait_for_answer(stop));
    EXPECT_EQ(trouble(), Lines{});
    expect_not_loaded(1);
    expect_beat_goes_on();
}

TEST_F(FaultsFifoTest, AWriterThatVanishesWithinAPacketLeavesWhatIsStoredToPlay) {
    Fifo fifo(show().path("live.rec"));
    add_recording_later("live.rec");
    start_with_beat();
    const QDBusPendingCall play = play_later();
    fifo.open();
    ASSERT_TRUE(fifo.write(blocks(1, 5)));
    ASSERT_TRUE(wait_for_answer(play));
    ASSERT_TRUE(fifo.write(Recording{}.dmx(1, {6, 6, 6}).cut_to(20).bytes()));
    fifo.close();
    ASSERT_TRUE(controller().wait_for_stopped(1));
    std::vector<int> levels;
    for (const Frame& frame : wire_.arrived()) {
        levels.push_back(frame.level(0));
    }
    EXPECT_THAT(levels, ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(trouble(), ElementsAre(parse_error_line("live.rec", 2)));
    expect_beat_goes_on();
}

TEST_F(FaultsFifoTest, AWriterThatVanishesBetweenPacketsHasSimplyEnded) {
    Fifo fifo(show().path("live.rec"));
    add_recording_later("live.rec");
    start_with_beat();
    const QDBusPendingCall play = play_later();
    fifo.open();
    ASSERT_TRUE(fifo.write(blocks(1, 5)));
    fifo.close();
    ASSERT_TRUE(wait_for_answer(play));
    EXPECT_TRUE(result(play));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    EXPECT_EQ(wire_.arrived().size(), 5U);
    EXPECT_EQ(trouble(), Lines{});
    expect_beat_goes_on();
}

TEST_F(FaultsFifoTest, AnEndlessRecordingPlaysUntilItIsStopped) {
    Fifo fifo(show().path("live.rec"));
    add_recording_later("live.rec");
    start_with_beat();
    const QDBusPendingCall play = play_later();
    fifo.open();
    // Paced by the pipe until nobody reads it any more. Long frames, so that memory goes to few of them.
    std::thread writer([&fifo] {
        while (fifo.write(block(1, 10ms))) {
            std::this_thread::sleep_for(1ms);
        }
    });
    EXPECT_TRUE(wait_for_answer(play));
    EXPECT_TRUE(result(play));
    for (int frame = 0; frame < 20; ++frame) {
        EXPECT_EQ(wire_.next().level(0), 1);
    }
    EXPECT_THAT(controller().stopped(), testing::IsEmpty());
    controller().stop_playlist(1);
    writer.join();
    EXPECT_EQ(trouble(), Lines{});
    expect_not_loaded(1);
    expect_beat_goes_on();
}

TEST_F(FaultsFifoTest, AnEndlessRecordingWithoutAPacketHoldsItsCallerAndTakesNoMemory) {
    std::filesystem::create_symlink("/dev/zero", show().path("zero.rec"));
    add_recording_later("zero.rec");
    start_with_beat();
    const pid_t pid = service().program().pid();
    const QDBusPendingCall play = play_later();
    ASSERT_TRUE(service().wait_for_log(loading("zero.rec")));
    const QDBusPendingCall level = ask_level();
    const long long read_before = process_number(pid, "io", "rchar");
    const long long memory_before = process_number(pid, "status", "VmRSS");
    ASSERT_NE(read_before, -1);
    constexpr long long kMebibyte = 1024 * 1024;
    EXPECT_TRUE(
        wait_until([=] { return process_number(pid, "io", "rchar") > read_before + 32 * kMebibyte; }));
    EXPECT_LT(process_number(pid, "status", "VmRSS") - memory_before, 16 * 1024) << "KiB";
    expect_beat_goes_on(20);
    EXPECT_FALSE(answered(play));
    EXPECT_FALSE(answered(level));
    EXPECT_EQ(trouble(), Lines{});
    // The end of the service is the only way out, and there it is.
}

TEST_F(FaultsFifoTest, AHugeRecordingPlaysWhatItHoldsAndItsStopWaitsForItsEnd) {
    show().recording("huge.rec", blocks(1, 6));
    constexpr off_t kTebibyte = off_t{1} << 40;
    if (truncate(show().path("huge.rec").c_str(), kTebibyte) != 0) {
        GTEST_SKIP() << "no file of a tebibyte can be made here";
    }
    add_recording_later("huge.rec");
    start_with_beat();
    EXPECT_TRUE(controller().play(1));
    for (int level = 1; level <= 5; ++level) {
        EXPECT_EQ(wire_.next().level(0), level);
    }
    const QDBusPendingCall stop = stop_later();
    ASSERT_TRUE(service().wait_for_log("info [Repeater::stop_playlist] Stop playlist (playlist_id:1)"));
    expect_beat_goes_on(20);
    EXPECT_FALSE(answered(stop));
    EXPECT_THAT(controller().stopped(), testing::IsEmpty());
    EXPECT_EQ(trouble(), Lines{});
}
