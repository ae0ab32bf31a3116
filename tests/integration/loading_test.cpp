// From recordings to timed frames: what the loader makes of timing packets, frame rates and bad recordings.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "service_test.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;

namespace {

using Clock = std::chrono::steady_clock;

/// `frames` frames of universes 0, 1 and 2, each followed by a timing packet.
Recording three_universes(int frames, std::uint32_t milliseconds) {
    Recording recording;
    for (int frame = 1; frame <= frames; ++frame) {
        for (int universe = 0; universe < 3; ++universe) {
            recording.dmx(universe, {static_cast<std::uint8_t>(frame)});
        }
        recording.frame_delay_ms(milliseconds);
    }
    return recording;
}

class LoadingTest : public ServiceTest {
protected:
    /// Plays a playlist that ends; how long that took at least follows from its delays alone.
    Clock::duration time_to_end(int id) {
        const Clock::time_point before = Clock::now();
        EXPECT_TRUE(controller().play(id));
        EXPECT_TRUE(controller().wait_for_stopped(1));
        return Clock::now() - before;
    }

    /// Arrival of each datagram since the play call, which no datagram may precede by its delays.
    void expect_not_before(const std::vector<Clock::duration>& earliest, const std::function<void()>& play) {
        const Clock::time_point before = Clock::now();
        play();
        const std::vector<Frame> frames = wire_.next(static_cast<int>(earliest.size()));
        for (std::size_t i = 0; i < earliest.size(); ++i) {
            EXPECT_GE(frames[i].arrival - before, earliest[i]) << "datagram " << i;
        }
    }

    void add_effect(int id, bool loop, const Recording& recording, ShowEffect effect) {
        show()
            .recording(std::to_string(id) + ".rec", recording.bytes())
            .playlist(ShowPlaylist(id).loop(loop).effect(effect.output(wire_.output("*"))));
    }

    ForwarderSocket wire_;
};

}  // namespace

TEST_F(LoadingTest, MillisecondTimingHoldsTheFrameBeforeItAndTheLastPacketWaitsThirty) {
    add_effect(1, true, three_universes(2, 60), ShowEffect("1.rec"));
    start();
    expect_not_before({0ms, 0ms, 0ms, 60ms, 60ms, 60ms, 90ms, 90ms, 90ms, 150ms},
                      [this] { EXPECT_TRUE(controller().play(1)); });
}

TEST_F(LoadingTest, NanosecondTimingHoldsTheFrameBeforeItAndTheLastOfTwoCounts) {
    Recording recording;
    recording.dmx(1, {1}).frame_delay(900s).frame_delay(55ms).dmx(1, {2}).frame_delay(45ms).dmx(1, {3});
    add_effect(1, true, recording, ShowEffect("1.rec"));
    start();
    expect_not_before({0ms, 55ms, 100ms, 130ms}, [this] { EXPECT_TRUE(controller().play(1)); });
}

TEST_F(LoadingTest, TheLastPacketsOwnTimingGivesWayToThirtyMilliseconds) {
    add_effect(1, true, Recording{}.dmx(1, {1}).frame_delay(900s), ShowEffect("1.rec"));
    start();
    // With its own timing the second frame would not come within the deadline.
    expect_not_before({0ms, 30ms, 60ms}, [this] { EXPECT_TRUE(controller().play(1)); });
}

TEST_F(LoadingTest, AFixedRateIgnoresTimingPacketsAndFindsTheFrameSize) {
    // 25 frames per second: 40 ms each, in place of 900 s.
    add_effect(1, true, three_universes(3, 900'000), ShowEffect("1.rec").fps(25));
    start();
    expect_not_before({0ms, 0ms, 0ms, 40ms, 40ms, 40ms, 80ms, 80ms, 80ms, 120ms},
                      [this] { EXPECT_TRUE(controller().play(1)); });
}

TEST_F(LoadingTest, AFractionalRateIsTruncated) {
    // 10.9 counts as 10: 100 ms a frame.
    add_effect(1, true, Recording{}.dmx(1, {1}), ShowEffect("1.rec").fps(10.9));
    start();
    expect_not_before({0ms, 100ms, 200ms}, [this] { EXPECT_TRUE(controller().play(1)); });
}

TEST_F(LoadingTest, PacketsPerFrameEndAFrameAfterThatManyPackets) {
    Recording recording;
    for (int packet = 1; packet <= 4; ++packet) {
        recording.dmx(1, {static_cast<std::uint8_t>(packet)});
    }
    add_effect(1, true, recording, ShowEffect("1.rec").fps(20).ppf(2));
    start();
    expect_not_before({0ms, 0ms, 50ms, 50ms, 100ms}, [this] { EXPECT_TRUE(controller().play(1)); });
}

TEST_F(LoadingTest, ZeroPacketsPerFrameWaitOnlyAtTheEndOfTheEffect) {
    Recording recording;
    recording.dmx(1, {1}).dmx(1, {2}).dmx(1, {3});
    add_effect(1, true, recording, ShowEffect("1.rec").fps(20).ppf(0));
    start();
    expect_not_before({0ms, 0ms, 0ms, 50ms}, [this] { EXPECT_TRUE(controller().play(1)); });
}

TEST_F(LoadingTest, AShowLastsAtLeastTheSumOfItsDelaysButTheLast) {
    // The end is reached with the last packet, whose own delay is not waited for.
    add_effect(1, false, Recording{}.dmx(1, {1}).frame_delay(120ms).dmx(1, {2}).frame_delay(900s),
               ShowEffect("1.rec"));
    start();
    EXPECT_GE(time_to_end(1), 120ms);
    EXPECT_EQ(wire_.arrived().size(), 2u);
}

TEST_F(LoadingTest, PlaybackBeginsWhileARecordingStillArrives) {
    ASSERT_EQ(mkfifo(show().path("1.rec").c_str(), 0600), 0);
    show().playlist(ShowPlaylist(1).loop(false).effect(ShowEffect("1.rec").output(wire_.output("1"))));
    start();
    // Open for both, so that neither side waits for the other; its data stay until the service reads them.
    const int pipe = open(show().path("1.rec").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_NE(pipe, -1);
    const auto record = [pipe](const Recording& part) {
        const std::string bytes = part.text();
        EXPECT_EQ(write(pipe, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    };
    // More than 50 ms of frames in whole blocks of 512 bytes, and nothing after them until the first is out.
    record(Recording{}
               .dmx(1, {1})
               .frame_delay(60ms)
               .dmx(1, std::vector<std::uint8_t>(512, 2))
               .frame_delay(5ms)
               .fill_to(2048));
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(wire_.next().level(0), 1);
    EXPECT_THAT(controller().stopped(), testing::IsEmpty());
    record(Recording{}.dmx(1, {3}));
    close(pipe);
    EXPECT_EQ(wire_.next().level(0), 2);
    EXPECT_EQ(wire_.next_where([](const Frame& frame) { return frame.level(0) == 3; }).level(0), 3);
    EXPECT_TRUE(controller().wait_for_stopped(1));
}

TEST_F(LoadingTest, ABadRecordingEndsTheLoadThereAndWhatIsStoredPlaysAndEnds) {
    Recording cut;
    cut.dmx(1, {3}).frame_delay(1ms).dmx(1, {4}).frame_delay(1ms).dmx(1, {5, 6, 7});
    cut.cut_to(cut.size() - 2);
    show()
        .recording("good.rec", Recording{}.dmx(1, {1}).frame_delay(1ms).dmx(1, {2}).bytes())
        .recording("cut.rec", cut.bytes())
        .recording("later.rec", Recording{}.dmx(1, {9}).bytes());
    ShowPlaylist playlist(1);
    playlist.loop(false);
    for (const char* const path : {"good.rec", "cut.rec", "later.rec"}) {
        playlist.effect(ShowEffect(path).output(wire_.output("1")));
    }
    show().playlist(playlist);
    start();
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    // Of the cut recording the packet before the last complete one is stored; the last is still held back.
    std::vector<int> levels;
    for (const Frame& frame : wire_.arrived()) {
        levels.push_back(frame.level(0));
    }
    EXPECT_THAT(levels, ElementsAre(1, 2, 3));
    const std::vector<std::string> lines = log_since_mark();
    EXPECT_THAT(lines, Contains("err playlist_loader.cpp [PlaylistLoader::load_effect] Cue (" + data_root() +
                                "/cut.rec) parse error (2)"));
    EXPECT_THAT(lines, testing::Not(Contains("info [PlaylistLoader::load_effect] Load effect (" +
                                             data_root() + "/later.rec)")));
}

TEST_F(LoadingTest, TheLoadersLinesNameEachEffectAndEachStoredPacket) {
    show()
        .recording("a.rec", Recording{}.dmx(1, {1}).dmx(2, {1, 2}).bytes())
        .recording("b.rec", Recording{}.dmx(0x1234, std::vector<std::uint8_t>(512, 7)).bytes())
        .playlist(ShowPlaylist(1).loop(false).effect(ShowEffect("a.rec")).effect(ShowEffect("b.rec")));
    start();
    controller().set_log_level(5);
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    std::vector<std::string> lines = log_since_mark();
    std::erase_if(
        lines, [](const std::string& line) { return line.find("[PlaylistLoader::") == std::string::npos; });
    // The stale tail of the second recording's last block holds nothing, so each packet comes once.
    EXPECT_THAT(lines,
                ElementsAre("info [PlaylistLoader::load_effect] Load effect (" + data_root() + "/a.rec)",
                            "info [PlaylistLoader::flush_pending_packet] Loaded packet (index:0, size:19, "
                            "universe:1)",
                            "info [PlaylistLoader::flush_pending_packet] Loaded packet (index:1, size:20, "
                            "universe:2)",
                            "info [PlaylistLoader::load_effect] Load effect (" + data_root() + "/b.rec)",
                            "info [PlaylistLoader::flush_pending_packet] Loaded packet (index:2, size:530, "
                            "universe:4660)"));
}

TEST_F(LoadingTest, UnknownPacketsAreNamedAndSkipped) {
    Recording recording;
    recording.dmx(1, {1}).header(0x9700).dmx(1, {2});
    add_effect(1, false, recording, ShowEffect("1.rec"));
    start();
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    EXPECT_EQ(wire_.arrived().size(), 2u);
    EXPECT_THAT(log_since_mark(),
                Contains("info [PlaylistLoader::load_effect] Skipped unknown ArtNet packet (1) with "
                         "OpCode (0x9700)"));
}

TEST_F(LoadingTest, OversizedPacketsAreAWarningAndSkipped) {
    Recording recording;
    // Length 513.
    recording.dmx(1, {1}).header(0x5000).raw({0, 14, 0, 0, 1, 0, 2, 1}).dmx(1, {2});
    add_effect(1, false, recording, ShowEffect("1.rec"));
    start();
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    EXPECT_EQ(wire_.arrived().size(), 2u);
    EXPECT_THAT(log_since_mark(),
                Contains("warning playlist_loader.cpp [PlaylistLoader::load_effect] Non-critical "
                         "error (ArtNet Parser: :4) in packet (1)"));
}

TEST_F(LoadingTest, PacketsInTheStaleTailOfTheLastBlockComeASecondTime) {
    // 28 packets of 19 bytes are 532: the second read brings 20 bytes, the end of packet 27 and packet 28.
    // Behind them the buffer still holds the first block from its 21st byte on.
    Recording recording;
    for (int packet = 1; packet <= 28; ++packet) {
        recording.dmx(1, {static_cast<std::uint8_t>(packet)});
    }
    ASSERT_EQ(recording.size(), 532u);
    add_effect(1, false, recording, ShowEffect("1.rec"));
    start();
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    std::vector<int> levels;
    for (const Frame& frame : wire_.arrived()) {
        levels.push_back(frame.level(0));
    }
    std::vector<int> expected;
    for (int packet = 1; packet <= 28; ++packet) {
        expected.push_back(packet);
    }
    // There packet 2 has lost its first byte, 3 to 26 are whole, and the last byte of 27 lies beyond the
    // buffer.
    for (int packet = 3; packet <= 26; ++packet) {
        expected.push_back(packet);
    }
    EXPECT_EQ(levels, expected);
    EXPECT_THAT(log_since_mark(), testing::Not(Contains(testing::StartsWith("err"))));
}
