// Loads that fail: what stays of them, what is logged, and the load after one.

#include "playlist_loader_fixture.h"

#include <string>
#include <vector>

namespace {

/// Loads a good effect, then one that fails, then a good one.
class PlaylistLoaderFailureTest : public PlaylistLoaderFixture {
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

TEST_F(PlaylistLoaderFailureTest, LoadingAgainStartsFromNothingButKeepsTheRangesOfEffectsThatFailNow) {
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

TEST_F(PlaylistLoaderFailureTest, LoadingAgainForgetsThePacketThatAFailureLeftPending) {
    const std::vector<std::uint8_t> levels(100, 1);
    // The second packet is whole and pending when the third shows that the file is cut.
    load(Recording{}.dmx(7, levels).dmx(8, levels).dmx(9, levels).cut_to(304), own_timing("bad.rec"));
    ASSERT_EQ(playlist_.packets_loaded(), 1);
    load(Recording{}.dmx(3, {1}).dmx(4, {1}), own_timing("good.rec"));
    ASSERT_EQ(playlist_.packets_loaded(), 2);
    EXPECT_EQ(packet(0).universe, 3);
    EXPECT_EQ(packet(1).universe, 4);
}

}  // namespace
