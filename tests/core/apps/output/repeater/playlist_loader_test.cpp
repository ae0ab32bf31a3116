// What the loader makes of recordings: packets, delays, ranges, log lines.

#include "playlist_loader.h"

#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ondra/timing.h"
#include "support/captured_log.h"
#include "support/eventually.h"
#include "support/playlist_access.h"
#include "support/recording.h"
#include "support/show_directory.h"

using namespace std::chrono_literals;

namespace {

using Delays = std::vector<long long>;

constexpr long long kMs = 1'000'000;

Playlist::Effect own_timing(const char* path) {
    Playlist::Effect effect;
    effect.path = QString::fromLatin1(path);
    return effect;
}

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

class PlaylistLoaderTest : public testing::Test {
protected:
    PlaylistLoaderTest() { playlist_.set_root_dir(show_.root()); }

    void load(const std::vector<Playlist::Effect>& effects) {
        PlaylistAccess::effects(playlist_) = effects;
        loader_.start(playlist_);
        loader_.wait_ready();
        ASSERT_TRUE(eventually([this] { return loader_.done(); }));
    }
    void load(const Recording& recording, Playlist::Effect effect) {
        show_.recording(effect.path.toStdString(), recording.bytes());
        load({std::move(effect)});
    }
    [[nodiscard]] Playlist::Packet packet(int index) const {
        Playlist::Packet result;
        EXPECT_TRUE(playlist_.packet(index, result)) << index;
        return result;
    }
    [[nodiscard]] Delays delays() const {
        Delays result;
        for (int index = 0; index < playlist_.packets_loaded(); ++index) {
            result.push_back(packet(index).delay.count());
        }
        return result;
    }
    [[nodiscard]] std::string path(const char* relative) const { return show_.path(relative); }
    [[nodiscard]] int loaded_effects() const { return PlaylistAccess::loaded_effects(playlist_); }

    CapturedLog log_;
    ShowDirectory show_;
    Playlist playlist_;
    PlaylistLoader loader_;
};

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

/// Loads a good effect, then one that fails, then a good one.
class PlaylistLoaderFailureTest : public PlaylistLoaderTest {
protected:
    void load_with_bad_middle() {
        show_.recording("good.rec", Recording{}.dmx(0, {1}).dmx(0, {1}).bytes());
        load({own_timing("good.rec"), own_timing("bad.rec"), own_timing("good.rec")});
    }
    void expect_error(int code) {
        EXPECT_TRUE(log_.has("[PlaylistLoader::load_effect] Cue (" + path("bad.rec") + ") parse error (" +
                             std::to_string(code) + ")"));
        EXPECT_EQ(log_.lines_starting("[PlaylistLoader::load_effect] Load effect").size(), 2U);
        EXPECT_EQ(loaded_effects(), 1);
        EXPECT_TRUE(loader_.done());
    }
};

TEST_F(PlaylistLoaderFailureTest, AMissingRecordingEndsTheLoadAndWhatIsStoredStays) {
    load_with_bad_middle();
    expect_error(1);
    EXPECT_EQ(playlist_.packets_loaded(), 2);
    EXPECT_EQ(PlaylistAccess::effect_end(playlist_), (std::vector<int>{1, -1, -1}));
}

TEST_F(PlaylistLoaderFailureTest, ATruncatedRecordingKeepsWhatWasStoredButNotThePendingPacket) {
    // The second packet of 100 channels lacks its last 50: the first is still pending when that shows.
    show_.recording("bad.rec", Recording{}
                                   .dmx(7, std::vector<std::uint8_t>(100, 1))
                                   .dmx(8, std::vector<std::uint8_t>(100, 1))
                                   .dmx(9, std::vector<std::uint8_t>(100, 1))
                                   .cut_to(304)
                                   .bytes());
    load_with_bad_middle();
    expect_error(2);
    ASSERT_EQ(playlist_.packets_loaded(), 3);
    EXPECT_EQ(packet(2).universe, 7);
}

TEST_F(PlaylistLoaderFailureTest, ARecordingWithoutAnArtNetPacketIsAnError) {
    show_.file("bad.rec", "nothing of the kind");
    load_with_bad_middle();
    expect_error(3);
}

TEST_F(PlaylistLoaderFailureTest, AnEmptyRecordingIsAnError) {
    show_.file("bad.rec", "");
    load_with_bad_middle();
    expect_error(3);
}

TEST_F(PlaylistLoaderFailureTest, ADirectoryIsAnErrorLikeAnyOtherBadRecording) {
    show_.file("bad.rec/inside", "");
    load_with_bad_middle();
    EXPECT_EQ(log_.lines_starting("[PlaylistLoader::load_effect] Cue (" + path("bad.rec") + ") parse error (")
                  .size(),
              1U);
    EXPECT_EQ(playlist_.packets_loaded(), 2);
    EXPECT_EQ(loaded_effects(), 1);
}

TEST_F(PlaylistLoaderTest, LoadingAgainStartsFromNothingButKeepsTheRangesOfEffectsThatFailNow) {
    show_.recording("a.rec", Recording{}.dmx(0, {1}).dmx(0, {1}).bytes());
    show_.recording("b.rec", Recording{}.dmx(1, {1}).bytes());
    load({own_timing("a.rec"), own_timing("b.rec")});
    ASSERT_EQ(PlaylistAccess::effect_end(playlist_), (std::vector<int>{1, 2}));
    show_.recording("a.rec", Recording{}.dmx(3, {1}).bytes());
    show_.file("b.rec", "");
    loader_.start(playlist_);
    ASSERT_TRUE(eventually([this] { return loader_.done(); }));
    EXPECT_EQ(playlist_.packets_loaded(), 1);
    EXPECT_EQ(packet(0).universe, 3);
    EXPECT_EQ(loaded_effects(), 1);
    EXPECT_EQ(PlaylistAccess::effect_end(playlist_), (std::vector<int>{0, 2}));
}

TEST_F(PlaylistLoaderTest, LoadingAgainForgetsThePacketThatAFailureLeftPending) {
    const std::vector<std::uint8_t> levels(100, 1);
    // The second packet is whole and pending when the third shows that the file is cut.
    load(Recording{}.dmx(7, levels).dmx(8, levels).dmx(9, levels).cut_to(304), own_timing("bad.rec"));
    ASSERT_EQ(playlist_.packets_loaded(), 1);
    load(Recording{}.dmx(3, {1}).dmx(4, {1}), own_timing("good.rec"));
    ASSERT_EQ(playlist_.packets_loaded(), 2);
    EXPECT_EQ(packet(0).universe, 3);
    EXPECT_EQ(packet(1).universe, 4);
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
