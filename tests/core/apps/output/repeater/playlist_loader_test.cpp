// What the loader makes of recordings: packets, delays, ranges, log lines.

#include "playlist_loader_fixture.h"

#include <limits>
#include <string>
#include <vector>

#include "ondra/timing.h"

using namespace std::chrono_literals;

namespace {

using PlaylistLoaderTest = PlaylistLoaderFixture;

constexpr long long kMs = 1'000'000;

Playlist::Effect fixed_rate(const char* path, int fps, int ppf) {
    Playlist::Effect effect = own_timing(path);
    effect.fps = fps;
    effect.ppf = ppf;
    effect.fixed_fps = true;
    effect.auto_ppf = ppf == -1;
    return effect;
}

/// Three frames of the universes 0, 1, 2, each followed by 40 ms.
Recording three_frames() {
    Recording recording;
    for (int frame = 0; frame < 3; ++frame) {
        recording.dmx(0, {1}).dmx(1, {2}).dmx(2, {3}).frame_delay_ms(40);
    }
    return recording;
}

TEST_F(PlaylistLoaderTest, APlaylistWithoutEffectsIsReadyAndDoneAtOnce) {
    EXPECT_FALSE(loader_.done());
    load(std::vector<Playlist::Effect>{});
    EXPECT_TRUE(loader_.done());
    EXPECT_EQ(playlist_.packets_loaded(), 0);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(PlaylistLoaderTest, APacketIsStoredInWireOrderWithItsUniverse) {
    load(Recording{}.dmx(0x1203, {7, 8}), own_timing("a.rec"));
    ASSERT_EQ(playlist_.packets_loaded(), 1);
    EXPECT_EQ(packet(0).universe, 0x1203);
    EXPECT_EQ(packet(0).data, (std::vector<unsigned char>{'A', 'r', 't', '-', 'N',  'e',  't', 0, 0x00, 0x50,
                                                          0,   14,  0,   0,   0x03, 0x12, 0,   2, 7,    8}));
}

TEST_F(PlaylistLoaderTest, TheUniverseIsTheWhole16BitValue) {
    load(Recording{}.dmx(0xFFFF, {7}), own_timing("a.rec"));
    EXPECT_EQ(packet(0).universe, 65535);
}

TEST_F(PlaylistLoaderTest, TheStoredPacketIsExactlyAsLongAsTheRecordedOne) {
    load(Recording{}.dmx(0, std::vector<std::uint8_t>(512, 9)).dmx(0, {}), own_timing("a.rec"));
    ASSERT_EQ(playlist_.packets_loaded(), 2);
    EXPECT_EQ(packet(0).data.size(), 530U);
    EXPECT_EQ(packet(0).data.back(), 9);
    EXPECT_EQ(packet(1).data.size(), 18U);
    const std::vector<unsigned char>& stored = PlaylistAccess::stored(playlist_, 0)->data;
    EXPECT_EQ(stored.capacity(), stored.size());
}

TEST_F(PlaylistLoaderTest, ASinglePacketWithItsOwnTimingWaits30Ms) {
    load(Recording{}.dmx(0, {1}), own_timing("a.rec"));
    EXPECT_EQ(delays(), (Delays{30 * kMs}));
}

TEST_F(PlaylistLoaderTest, ATimingPacketDelaysThePacketBeforeItAndTheLastWaits30Ms) {
    load(three_frames(), own_timing("a.rec"));
    EXPECT_EQ(delays(), (Delays{0, 0, 40 * kMs, 0, 0, 40 * kMs, 0, 0, 30 * kMs}));
}

TEST_F(PlaylistLoaderTest, AFixedRateIgnoresTheTimingPacketsAndFindsTheFrameSize) {
    load(three_frames(), fixed_rate("a.rec", 25, -1));
    EXPECT_EQ(delays(), (Delays{0, 0, 40 * kMs, 0, 0, 40 * kMs, 0, 0, 40 * kMs}));
}

TEST_F(PlaylistLoaderTest, AFixedRateUsesThePeriodOfItsFps) {
    load(three_frames(), fixed_rate("a.rec", 30, 3));
    EXPECT_EQ(delays(), (Delays{0, 0, 33333333, 0, 0, 33333333, 0, 0, 33333333}));
}

TEST_F(PlaylistLoaderTest, NanosecondTimingPacketsAreIgnoredAtAFixedRateToo) {
    load(Recording{}.dmx(0, {1}).frame_delay(7ms).dmx(0, {1}), fixed_rate("a.rec", 25, 2));
    EXPECT_EQ(delays(), (Delays{0, 40 * kMs}));
}

TEST_F(PlaylistLoaderTest, AGivenFrameSizeEndsAFrameEveryThatManyPackets) {
    load(three_frames(), fixed_rate("a.rec", 25, 2));
    EXPECT_EQ(delays(), (Delays{0, 40 * kMs, 0, 40 * kMs, 0, 40 * kMs, 0, 40 * kMs, 40 * kMs}));
}

TEST_F(PlaylistLoaderTest, AFrameSizeOfOneDelaysEveryPacket) {
    load(Recording{}.dmx(0, {1}).dmx(1, {1}).dmx(0, {1}), fixed_rate("a.rec", 25, 1));
    EXPECT_EQ(delays(), (Delays{40 * kMs, 40 * kMs, 40 * kMs}));
}

TEST_F(PlaylistLoaderTest, AFrameSizeOfZeroEndsNoFrameButTheLast) {
    load(three_frames(), fixed_rate("a.rec", 25, 0));
    EXPECT_EQ(delays(), (Delays{0, 0, 0, 0, 0, 0, 0, 0, 40 * kMs}));
}

TEST_F(PlaylistLoaderTest, ANegativeFrameSizeCountsAsItsMagnitude) {
    load(Recording{}.dmx(0, {1}).dmx(0, {1}).dmx(0, {1}).dmx(0, {1}).dmx(0, {1}),
         fixed_rate("a.rec", 25, -2));
    EXPECT_EQ(delays(), (Delays{0, 40 * kMs, 0, 40 * kMs, 40 * kMs}));
}

TEST_F(PlaylistLoaderTest, WithoutAUniverseThatComesAgainTheWholeRecordingIsOneFrame) {
    load(Recording{}.dmx(0, {1}).dmx(1, {1}).dmx(2, {1}), fixed_rate("a.rec", 25, -1));
    EXPECT_EQ(delays(), (Delays{0, 0, 40 * kMs}));
}

TEST_F(PlaylistLoaderTest, TheFrameSizeIsFoundAtTheFirstUniverseThatComesAgain) {
    load(Recording{}.dmx(5, {1}).dmx(6, {1}).dmx(6, {1}).dmx(5, {1}).dmx(6, {1}),
         fixed_rate("a.rec", 25, -1));
    EXPECT_EQ(delays(), (Delays{0, 40 * kMs, 0, 40 * kMs, 40 * kMs}));
}

TEST_F(PlaylistLoaderTest, EachEffectFindsItsOwnFrameSize) {
    show_.recording("a.rec", Recording{}.dmx(0, {1}).dmx(0, {1}).bytes());
    show_.recording("b.rec", Recording{}.dmx(0, {1}).dmx(1, {1}).dmx(0, {1}).dmx(1, {1}).bytes());
    load({fixed_rate("a.rec", 25, -1), fixed_rate("b.rec", 50, -1)});
    EXPECT_EQ(delays(), (Delays{40 * kMs, 40 * kMs, 0, 20 * kMs, 0, 20 * kMs}));
}

TEST_F(PlaylistLoaderTest, ARateOfZeroNeitherStopsNorFloodsPlayback) {
    load(Recording{}.dmx(0, {1}), fixed_rate("a.rec", 0, 1));
    EXPECT_EQ(delays(), (Delays{1000 * kMs}));
}

TEST_F(PlaylistLoaderTest, NanosecondTimingIsTakenAsItIs) {
    load(Recording{}.dmx(0, {1}).frame_delay(33366700ns).dmx(0, {1}), own_timing("a.rec"));
    EXPECT_EQ(delays(), (Delays{33366700, 30 * kMs}));
}

TEST_F(PlaylistLoaderTest, TheLastOfTwoTimingPacketsCounts) {
    load(Recording{}
             .dmx(0, {1})
             .frame_delay_ms(10)
             .frame_delay(20ms)
             .dmx(0, {1})
             .frame_delay(20ms)
             .frame_delay_ms(11)
             .dmx(0, {1}),
         own_timing("a.rec"));
    EXPECT_EQ(delays(), (Delays{20 * kMs, 11 * kMs, 30 * kMs}));
}

TEST_F(PlaylistLoaderTest, ATimingPacketBeforeTheFirstFrameIsIgnored) {
    load(Recording{}.frame_delay_ms(10).frame_delay(20ms).dmx(0, {1}).dmx(0, {1}), own_timing("a.rec"));
    EXPECT_EQ(delays(), (Delays{0, 30 * kMs}));
}

TEST_F(PlaylistLoaderTest, ATimingValueAboveTheSignedRangeIsNegativeAndUsedAsItIs) {
    load(Recording{}.dmx(0, {1}).frame_delay(-5ns).dmx(0, {1}), own_timing("a.rec"));
    EXPECT_EQ(delays(), (Delays{-5, 30 * kMs}));
}

TEST_F(PlaylistLoaderTest, TheSumOfHugeDelaysDoesNotOverflow) {
    constexpr auto kHuge = std::chrono::nanoseconds::max();
    load(Recording{}
             .dmx(0, {1})
             .frame_delay(kHuge)
             .dmx(0, {1})
             .frame_delay(kHuge)
             .dmx(0, {1})
             .frame_delay(kHuge)
             .dmx(0, {1}),
         own_timing("a.rec"));
    EXPECT_EQ(delays(), (Delays{kHuge.count(), kHuge.count(), kHuge.count(), 30 * kMs}));
}

TEST_F(PlaylistLoaderTest, EffectsAreLoadedInOrderAndTheirRangesNoted) {
    show_.recording("a.rec", Recording{}.dmx(0, {1}).dmx(0, {1}).bytes());
    show_.recording("b.rec", Recording{}.dmx(1, {1}).dmx(1, {1}).dmx(1, {1}).bytes());
    load({own_timing("a.rec"), own_timing("b.rec")});
    ASSERT_EQ(playlist_.packets_loaded(), 5);
    EXPECT_EQ(packet(1).universe, 0);
    EXPECT_EQ(packet(2).universe, 1);
    EXPECT_EQ(PlaylistAccess::effect_end(playlist_), (std::vector<int>{1, 4}));
    EXPECT_EQ(loaded_effects(), 2);
    EXPECT_EQ(delays(), (Delays{0, 30 * kMs, 0, 0, 30 * kMs}));
}

TEST_F(PlaylistLoaderTest, OtherPacketsOfARecordingAreSkippedWithoutAWord) {
    Recording recording;
    recording.dmx(0, {1})
        .header(0x2000)
        .raw({0, 14, 0, 0})
        .header(0x9900)
        .raw({0, 14, 0, 0, 0, 0, 0, 0})
        .dmx(0, {2});
    load(recording, own_timing("a.rec"));
    EXPECT_EQ(playlist_.packets_loaded(), 2);
    EXPECT_TRUE(log_.lines_starting("[PlaylistLoader::load_effect] Skipped").empty());
    EXPECT_TRUE(log_.lines_starting("[PlaylistLoader::load_effect] Non-critical").empty());
}

TEST_F(PlaylistLoaderTest, ANodesAnswerInARecordingIsSkippedWithoutAWord) {
    Recording recording;
    recording.dmx(0, {1}).header(0x2100).fill_to(recording.size() + 229).dmx(0, {2});
    load(recording, own_timing("a.rec"));
    ASSERT_EQ(playlist_.packets_loaded(), 2);
    EXPECT_EQ(packet(1).data.back(), 2);
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{
                                "[PlaylistLoader::load_effect] Load effect (" + path("a.rec") + ")",
                                "[PlaylistLoader::flush_pending_packet] Loaded packet (index:0, size:19, "
                                "universe:0)",
                                "[PlaylistLoader::flush_pending_packet] Loaded packet (index:1, size:19, "
                                "universe:0)"}));
}

TEST_F(PlaylistLoaderTest, AnUnknownPacketIsLoggedAndSkipped) {
    load(Recording{}.dmx(0, {1}).header(0x1234).dmx(0, {2}), own_timing("a.rec"));
    EXPECT_EQ(playlist_.packets_loaded(), 2);
    EXPECT_TRUE(
        log_.has("[PlaylistLoader::load_effect] Skipped unknown ArtNet packet (1) with OpCode (0x1234)"));
}

TEST_F(PlaylistLoaderTest, AnOversizedPacketIsLoggedAndSkipped) {
    Recording recording;
    recording.dmx(0, {1}).header(0x5000).raw({0, 14, 0, 0, 0, 0, 0x02, 0x01}).dmx(0, {2});
    load(recording, own_timing("a.rec"));
    EXPECT_EQ(playlist_.packets_loaded(), 2);
    EXPECT_TRUE(
        log_.has("[PlaylistLoader::load_effect] Non-critical error (ArtNet Parser: :4) in packet (1)"))
        << log_.lines_starting("[PlaylistLoader::load_effect] Non-critical").size();
}

TEST_F(PlaylistLoaderTest, EveryStoredPacketIsTracedWithIndexSizeAndUniverse) {
    load(Recording{}.dmx(4, {1}).dmx(5, {1, 2}), own_timing("a.rec"));
    EXPECT_EQ(log_.lines_starting("[PlaylistLoader::flush_pending_packet]"),
              (std::vector<std::string>{
                  "[PlaylistLoader::flush_pending_packet] Loaded packet (index:0, size:19, universe:4)",
                  "[PlaylistLoader::flush_pending_packet] Loaded packet (index:1, size:20, universe:5)"}));
}

TEST_F(PlaylistLoaderTest, EachEffectIsAnnouncedWithItsPath) {
    show_.recording("a.rec", Recording{}.dmx(0, {1}).bytes());
    show_.recording("deep/\xC3\xA9.rec", Recording{}.dmx(0, {1}).bytes());
    Playlist::Effect second = own_timing("");
    second.path = QString::fromUtf8("deep/\xC3\xA9.rec");
    load({own_timing("a.rec"), second});
    EXPECT_TRUE(log_.has("[PlaylistLoader::load_effect] Load effect (" + path("a.rec") + ")"));
    EXPECT_TRUE(log_.has("[PlaylistLoader::load_effect] Load effect (" + path("deep/\xC3\xA9.rec") + ")"));
    EXPECT_EQ(playlist_.packets_loaded(), 2);
}

/// At which level a line shows when `recording` is loaded.
int level_when_loading(const Recording& recording, const std::string& line_start) {
    ShowDirectory show;
    show.recording("a.rec", recording.bytes());
    const std::string line = [&show](std::string text) {
        const auto place = text.find("PATH");
        return place == std::string::npos ? text : text.replace(place, 4, show.path("a.rec"));
    }(line_start);
    return level_of(line, [&show] {
        Playlist playlist;
        playlist.set_root_dir(show.root());
        PlaylistAccess::effects(playlist) = {own_timing("a.rec")};
        PlaylistLoader loader;
        loader.start(playlist);
        EXPECT_TRUE(eventually([&loader] { return loader.done(); }));
    });
}

TEST(PlaylistLoaderLogTest, LinesHaveTheirLevels) {
    EXPECT_EQ(level_when_loading(Recording{}.dmx(0, {1}), "[PlaylistLoader::load_effect] Load effect (PATH)"),
              3);
    EXPECT_EQ(level_when_loading(Recording{}, "[PlaylistLoader::load_effect] Cue (PATH) parse error (3)"),
              -2);
    EXPECT_EQ(level_when_loading(
                  Recording{}.header(0x1234),
                  "[PlaylistLoader::load_effect] Skipped unknown ArtNet packet (0) with OpCode (0x1234)"),
              3);
    EXPECT_EQ(level_when_loading(
                  Recording{}.header(0x5000).raw({0, 14, 0, 0, 0, 0, 0x02, 0x01}),
                  "[PlaylistLoader::load_effect] Non-critical error (ArtNet Parser: :4) in packet (0)"),
              -1);
    EXPECT_EQ(level_when_loading(
                  Recording{}.dmx(0, {1}),
                  "[PlaylistLoader::flush_pending_packet] Loaded packet (index:0, size:19, universe:0)"),
              5);
}

}  // namespace
