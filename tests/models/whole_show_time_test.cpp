// Whole shows, datagram by datagram: when things go out.

#include "support/fifo.h"
#include "whole_show.h"

#include <thread>

using namespace std::chrono_literals;

namespace {

using WholeShowTimeTest = WholeShowTest;

constexpr const char* kIp = "192.0.2.1";
constexpr int kPort = 6454;

/// A frame each `delay` with the levels given, on one universe.
Recording steps(int universe, std::chrono::nanoseconds delay, const std::vector<std::uint8_t>& levels) {
    Recording recording;
    for (const std::uint8_t level : levels) {
        recording.dmx(universe, {level}).frame_delay(delay);
    }
    return recording;
}

ShowEffect to(int id, const std::string& output) {
    return ShowEffect(std::to_string(id) + ".rec").output(output);
}

TEST_F(WholeShowTimeTest, ThreePlaylistsInterleaveByDueTimeAndTiesGoByLoadOrder) {
    add(ShowPlaylist(7).loop(false), to(7, "0:192.0.2.1:6454"), steps(0, 20ms, {1, 2, 3, 4}));
    add(ShowPlaylist(3).loop(false), to(3, "1:192.0.2.2:6455"), steps(1, 30ms, {11, 12, 13}));
    add(ShowPlaylist(5).loop(false), to(5, "2:192.0.2.3:40000"), steps(2, 20ms, {21, 22, 23, 24}));
    play(7);
    play(3);
    play(5);
    play_until(200ms);
    expect_sent({
        due(0ms, kIp, kPort, 0, {1}),
        due(0ms, "192.0.2.2", 6455, 1, {11}),
        due(0ms, "192.0.2.3", 40000, 2, {21}),
        due(20ms, kIp, kPort, 0, {2}),
        due(20ms, "192.0.2.3", 40000, 2, {22}),
        due(30ms, "192.0.2.2", 6455, 1, {12}),
        due(40ms, kIp, kPort, 0, {3}),
        due(40ms, "192.0.2.3", 40000, 2, {23}),
        due(60ms, kIp, kPort, 0, {4}),
        due(60ms, "192.0.2.2", 6455, 1, {13}),
        due(60ms, "192.0.2.3", 40000, 2, {24}),
    });
}

TEST_F(WholeShowTimeTest, ASpeedBoostSetWhileAFrameGoesOutCountsFromTheNextInterval) {
    Recording recording;
    for (std::uint8_t frame = 1; frame <= 4; ++frame) {
        recording.dmx(0, {frame}).dmx(1, {frame}).dmx(2, {frame}).frame_delay(33333333ns);
    }
    add(ShowPlaylist(1).loop(false), to(1, "*:192.0.2.1:6454"), recording);
    play(1);
    // The second packet of the second frame.
    call_while_sending(5, true, [this] { engine().set_speed_boost(1, 50); });
    play_until(200ms);
    // The frame being sent ends with its own interval: the call gets in after it.
    expect_sent({
        due(0ms, kIp, kPort, 0, {1}),
        due(0ms, kIp, kPort, 1, {1}),
        due(0ms, kIp, kPort, 2, {1}),
        due(33333333ns, kIp, kPort, 0, {2}),
        due(33333333ns, kIp, kPort, 1, {2}),
        due(33333333ns, kIp, kPort, 2, {2}),
        due(66666666ns, kIp, kPort, 0, {3}),
        due(66666666ns, kIp, kPort, 1, {3}),
        due(66666666ns, kIp, kPort, 2, {3}),
        due(66666666ns + 24999999ns, kIp, kPort, 0, {4}),
        due(66666666ns + 24999999ns, kIp, kPort, 1, {4}),
        due(66666666ns + 24999999ns, kIp, kPort, 2, {4}),
    });
}

TEST_F(WholeShowTimeTest, ASpeedBoostSetBetweenFramesScalesTheIntervalsAfterTheNextFrame) {
    add(ShowPlaylist(1), to(1, "0:192.0.2.1:6454"), steps(0, 33333333ns, {1, 2, 3, 4, 5, 6}));
    play(1);
    play_until_sent(2);
    engine().set_speed_boost(1, 50);
    play_until_sent(4);
    engine().set_speed_boost(1, 0);
    play_until_sent(5);
    // 33333333 ns become 24999999.75: cut, not rounded.
    expect_sent({
        due(0ns, kIp, kPort, 0, {1}),
        due(33333333ns, kIp, kPort, 0, {2}),
        due(66666666ns, kIp, kPort, 0, {3}),
        due(66666666ns + 24999999ns, kIp, kPort, 0, {4}),
        due(66666666ns + 2 * 24999999ns, kIp, kPort, 0, {5}),
    });
}

TEST_F(WholeShowTimeTest, TheLoopSeamHasNoGapAndOthersDoNotFeelIt) {
    show.recording("a.rec", Recording{}.dmx(0, {1}).frame_delay(20ms).dmx(0, {2}).bytes());
    show.recording("b.rec", Recording{}.dmx(0, {3}).dmx(1, {4}).bytes());
    show.playlist(ShowPlaylist(1)
                      .effect(ShowEffect("a.rec").output("0:192.0.2.1:6454"))
                      .effect(ShowEffect("b.rec").output("*:192.0.2.9:6454")));
    add(ShowPlaylist(2), to(2, "5:192.0.2.5:6454"), steps(5, 25ms, {51, 52}));
    play(1);
    play(2);
    play_until_sent(14);
    expect_sent({
        due(0ms, kIp, kPort, 0, {1}),
        due(0ms, "192.0.2.5", kPort, 5, {51}),
        due(20ms, kIp, kPort, 0, {2}),
        due(25ms, "192.0.2.5", kPort, 5, {52}),
        due(50ms, "192.0.2.9", kPort, 0, {3}),
        due(50ms, "192.0.2.9", kPort, 1, {4}),
        // The last packet of each recording stands 30 ms: the second playlist's comes 25 + 30 ms after 0.
        due(55ms, "192.0.2.5", kPort, 5, {51}),
        due(80ms, kIp, kPort, 0, {1}),
        due(80ms, "192.0.2.5", kPort, 5, {52}),
        due(100ms, kIp, kPort, 0, {2}),
        due(110ms, "192.0.2.5", kPort, 5, {51}),
        due(130ms, "192.0.2.9", kPort, 0, {3}),
        due(130ms, "192.0.2.9", kPort, 1, {4}),
        due(135ms, "192.0.2.5", kPort, 5, {52}),
    });
}

TEST_F(WholeShowTimeTest, APausedPlaylistResumesAtItsPacketWhenPlayedAndOthersKeepTheirTime) {
    add(ShowPlaylist(1), to(1, "0:192.0.2.1:6454"), steps(0, 20ms, {1, 2, 3, 4, 5}));
    add(ShowPlaylist(2), to(2, "1:192.0.2.1:6454"), steps(1, 35ms, {11, 12, 13, 14, 15}));
    play(1);
    play(2);
    play_until(35ms);
    EXPECT_TRUE(engine().pause_playlist(1));
    play_until(105ms);
    EXPECT_TRUE(engine().play_playlist(1));
    play_until(140ms);
    expect_sent({
        due(0ms, kIp, kPort, 0, {1}),
        due(0ms, kIp, kPort, 1, {11}),
        due(20ms, kIp, kPort, 0, {2}),
        due(35ms, kIp, kPort, 1, {12}),
        due(70ms, kIp, kPort, 1, {13}),
        due(105ms, kIp, kPort, 1, {14}),
        due(105ms, kIp, kPort, 0, {3}),
        due(125ms, kIp, kPort, 0, {4}),
        due(140ms, kIp, kPort, 1, {15}),
    });
}

TEST_F(WholeShowTimeTest, WithEverythingPausedTheWorkerIdlesInTenMillisecondsUntilItIsPlayed) {
    add(ShowPlaylist(1), to(1, "0:192.0.2.1:6454"), steps(0, 20ms, {1, 2, 3}));
    play(1);
    play_until_sent(1);
    EXPECT_TRUE(engine().pause_playlist(1));
    play_until(47ms);
    EXPECT_TRUE(engine().play_playlist(1));
    play_until_sent(3);
    expect_sent({
        due(0ms, kIp, kPort, 0, {1}),
        due(50ms, kIp, kPort, 0, {2}),
        due(70ms, kIp, kPort, 0, {3}),
    });
}

TEST_F(WholeShowTimeTest, AnEndedPlaylistLeavesTheOthersAndStartsAnewOnlyAfterAStop) {
    std::vector<int> ended;
    QObject::connect(&engine(), &Repeater::OnPlaylistStopped, [&ended](int id) { ended.push_back(id); });
    add(ShowPlaylist(1).loop(false), to(1, "0:192.0.2.1:6454"), steps(0, 20ms, {1, 2}));
    add(ShowPlaylist(2), to(2, "1:192.0.2.1:6454"), steps(1, 30ms, {11, 12}));
    play(1);
    play(2);
    play_until(60ms);
    EXPECT_TRUE(engine().play_playlist(1));
    play_until(90ms);
    engine().stop_playlist(1);
    play(1);
    play_until(120ms);
    expect_sent({
        due(0ms, kIp, kPort, 0, {1}),
        due(0ms, kIp, kPort, 1, {11}),
        due(20ms, kIp, kPort, 0, {2}),
        due(30ms, kIp, kPort, 1, {12}),
        due(60ms, kIp, kPort, 1, {11}),
        due(90ms, kIp, kPort, 1, {12}),
        due(90ms, kIp, kPort, 0, {1}),
        due(110ms, kIp, kPort, 0, {2}),
        due(120ms, kIp, kPort, 1, {11}),
    });
    EXPECT_TRUE(eventually([&ended] { return ended.size() >= 2; }));
    EXPECT_EQ(ended, (std::vector<int>{1, 1}));
}

TEST_F(WholeShowTimeTest, StoppingEverythingSilencesTheShowAtOnceAndItCanBePlayedAnew) {
    add(ShowPlaylist(1), to(1, "0:192.0.2.1:6454"), steps(0, 20ms, {1, 2, 3}));
    add(ShowPlaylist(2), to(2, "1:192.0.2.1:6454"), steps(1, 20ms, {11, 12, 13}));
    play(1);
    play(2);
    play_until_sent(3);
    engine().stop();
    play_until(60ms);
    play(2);
    play_until_sent(5);
    expect_sent({
        due(0ms, kIp, kPort, 0, {1}),
        due(0ms, kIp, kPort, 1, {11}),
        due(20ms, kIp, kPort, 0, {2}),
        due(60ms, kIp, kPort, 1, {11}),
        due(80ms, kIp, kPort, 1, {12}),
    });
}

TEST_F(WholeShowTimeTest, ALoaderBehindDelaysItsPlaylistByTenMillisecondsAtATimeAndNoOther) {
    Fifo fifo(show.path("live.rec"));
    show.playlist(ShowPlaylist(1).loop(false).effect(ShowEffect("live.rec").output("0:192.0.2.1:6454")));
    add(ShowPlaylist(2), to(2, "1:192.0.2.1:6454"), steps(1, 35ms, {11, 12, 13, 14, 15}));
    std::thread feeder([&fifo] {
        fifo.open();
        fifo.write(
            Recording{}.dmx(0, {1}).frame_delay(60ms).dmx(0, {2}).frame_delay(25ms).fill_to(512).bytes());
    });
    EXPECT_TRUE(engine().play_playlist(1));
    feeder.join();
    const auto loaded = [this](int count) {
        return eventually([=, this] { return RepeaterAccess::packets_loaded(engine(), 1) == count; });
    };
    // A packet is stored once the next one tells that its delay is complete.
    EXPECT_TRUE(loaded(1));
    play(2);
    // Looked for at 60, 70, 80, 90 and 100 ms; 105 ms is the other playlist's.
    play_until(105ms);
    fifo.write(Recording{}.dmx(0, {3}).fill_to(512).bytes());
    EXPECT_TRUE(loaded(2));
    // Found at 110 ms; the third looked for at 135 ms and 145 ms.
    play_until(145ms);
    fifo.close();
    EXPECT_TRUE(eventually([this] { return RepeaterAccess::loader_done(engine(), 1); }));
    play_until(170ms);
    expect_sent({
        due(0ms, kIp, kPort, 0, {1}),
        due(0ms, kIp, kPort, 1, {11}),
        due(35ms, kIp, kPort, 1, {12}),
        due(70ms, kIp, kPort, 1, {13}),
        due(105ms, kIp, kPort, 1, {14}),
        due(110ms, kIp, kPort, 0, {2}),
        due(140ms, kIp, kPort, 1, {15}),
        due(155ms, kIp, kPort, 0, {3}),
        due(170ms, kIp, kPort, 1, {11}),
    });
    EXPECT_EQ(flags(1), "1,0,1");
}

}  // namespace
