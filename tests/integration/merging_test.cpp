// Several playlists on one universe: whose channels appear in the frames on the wire.

#include <algorithm>

#include "service_test.h"

using namespace integration;
using namespace std::chrono_literals;

namespace {

using Levels = std::vector<int>;

class MergingTest : public ServiceTest {
protected:
    /// A looping playlist of one frame on universe 1, repeated every few milliseconds, in a zone.
    void add_in_zone(int id, int zone, const std::vector<std::uint8_t>& levels) {
        const std::string file = std::to_string(id) + ".rec";
        show()
            .recording(file, Recording{}.dmx(1, levels).bytes())
            .playlist(
                ShowPlaylist(id).effect(ShowEffect(file).fps(200).output(wire_.output("1")).zone(1, zone)));
    }

    void add_without_zone(int id, const std::vector<std::uint8_t>& levels) {
        const std::string file = std::to_string(id) + ".rec";
        show()
            .recording(file, Recording{}.dmx(1, levels).bytes())
            .playlist(ShowPlaylist(id).effect(ShowEffect(file).fps(200).output(wire_.output("1"))));
    }

    /// Waits until such channels appear from channel 0 on; frames of another look before it are skipped.
    void expect_look(const Levels& look) {
        const int count = static_cast<int>(look.size());
        wire_.next_where([&](const Frame& frame) { return frame.levels(count) == look; });
    }

    /// All of the next frames have these channels.
    void expect_steady_look(const Levels& look) {
        wire_.arrived();
        for (const Frame& frame : wire_.next(8)) {
            EXPECT_EQ(frame.levels(static_cast<int>(look.size())), look);
        }
    }

    ForwarderSocket wire_;
};

}  // namespace

TEST_F(MergingTest, TheZoneOfHighestPriorityOwnsAChannelUntilItsPlaylistIsStopped) {
    add_in_zone(1, 10, {50, 50});
    add_in_zone(2, 20, {200, 200});
    start();
    EXPECT_TRUE(controller().init_zones({{10, 5, {0, 1}}, {20, 3, {0, 1}}}));
    EXPECT_TRUE(controller().play(2));
    expect_steady_look({200, 200});
    EXPECT_TRUE(controller().play(1));
    expect_look({50, 50});
    // The higher values of the other do not count.
    expect_steady_look({50, 50});
    controller().stop_playlist(1);
    expect_look({200, 200});
    expect_steady_look({200, 200});
}

TEST_F(MergingTest, ZonesOfDifferentChannelsAppearTogether) {
    add_in_zone(1, 10, {11, 12, 13, 14});
    add_in_zone(2, 20, {21, 22, 23, 24});
    start();
    EXPECT_TRUE(controller().init_zones({{10, 1, {0, 2}}, {20, 1, {1, 3}}}));
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    expect_look({11, 22, 13, 24});
    expect_steady_look({11, 22, 13, 24});
}

TEST_F(MergingTest, OverlappingZonesShareByPriorityChannelByChannel) {
    add_in_zone(1, 10, {11, 12, 13});
    add_in_zone(2, 20, {21, 22, 23});
    start();
    EXPECT_TRUE(controller().init_zones({{10, 2, {0, 1}}, {20, 1, {1, 2}}}));
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    expect_look({11, 12, 23});
    expect_steady_look({11, 12, 23});
}

TEST_F(MergingTest, ZonesOfEqualPriorityShareAndTheLatestWriteWins) {
    add_in_zone(1, 10, {10});
    add_in_zone(2, 20, {20});
    start();
    EXPECT_TRUE(controller().init_zones({{10, 4, {0}}, {20, 4, {0}}}));
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    expect_look({10});
    expect_look({20});
    expect_look({10});
    EXPECT_TRUE(controller().pause(1));
    expect_steady_look({20});
}

TEST_F(MergingTest, BrightnessActsOnTheChannelsOfThePlaylistsOwnZone) {
    add_in_zone(1, 10, {100, 100});
    add_in_zone(2, 20, {200, 200});
    start();
    EXPECT_TRUE(controller().init_zones({{10, 1, {0}}, {20, 1, {1}}}));
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    expect_look({100, 200});
    controller().set_brightness(1, 50);
    expect_look({50, 200});
    expect_steady_look({50, 200});
}

TEST_F(MergingTest, PlaylistsWithoutZonesDoNotMergeAndAlternate) {
    add_without_zone(1, {10});
    add_without_zone(2, {0, 20});
    start();
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    // Each frame starts from zeros.
    expect_look({10, 0});
    expect_look({0, 20});
    for (const Frame& frame : wire_.next(10)) {
        const Levels look = frame.levels(2);
        EXPECT_TRUE((look == Levels{10, 0} || look == Levels{0, 20})) << look[0] << " " << look[1];
    }
}

TEST_F(MergingTest, APlaylistWithoutZoneWritesTheChannelsThatNoZoneOwns) {
    add_in_zone(1, 10, {11, 12, 13});
    add_without_zone(2, {21, 22, 23});
    start();
    EXPECT_TRUE(controller().init_zones({{10, 1, {1}}}));
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    expect_look({21, 12, 23});
    expect_steady_look({21, 12, 23});
}

TEST_F(MergingTest, TheNewestPacketsHeaderHeadsTheFrameAndUnwrittenChannelsStay) {
    add_in_zone(1, 10, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    add_in_zone(2, 20, {91, 92});
    start();
    EXPECT_TRUE(controller().init_zones({{10, 1, channels(2, 11)}, {20, 1, {0, 1, 5}}}));
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    const Levels merged = {91, 92, 3, 4, 5, 6, 7, 8, 9, 10, 0, 0};
    expect_look(merged);
    wire_.next_where([&](const Frame& frame) { return frame.length() == 2 && frame.levels(12) == merged; });
    wire_.next_where([&](const Frame& frame) { return frame.length() == 10 && frame.levels(12) == merged; });
}

TEST_F(MergingTest, AnUnknownZoneStillSendsTheFrameWithItsChannelsUntouched) {
    add_in_zone(1, 99, {10, 20, 30});
    start();
    EXPECT_TRUE(controller().play(1));
    const Frame frame = wire_.next();
    EXPECT_EQ(frame.universe(), 1);
    EXPECT_EQ(frame.length(), 3);
    EXPECT_EQ(frame.levels(3), (Levels{0, 0, 0}));
}

TEST_F(MergingTest, AUniverseInZoneMinusTwoIsMutedAndTheOthersAreNot) {
    show()
        .recording("1.rec", Recording{}.dmx(1, {1}).dmx(2, {2}).frame_delay(2ms).bytes())
        .playlist(ShowPlaylist(1).effect(ShowEffect("1.rec").output(wire_.output("*")).zone(1, -2)));
    start();
    controller().set_log_level(6);
    EXPECT_TRUE(controller().play(1));
    for (const Frame& frame : wire_.next(6)) {
        EXPECT_EQ(frame.universe(), 2);
    }
    // Silence is no failure.
    EXPECT_THAT(
        log_since_mark(),
        testing::Not(testing::Contains(testing::StartsWith("info [Repeater::do_render_work] Can't send"))));
}

TEST_F(MergingTest, AZoneOfPriorityMinusOneClaimsNothingAndWritesUnownedChannels) {
    add_in_zone(1, 10, {11, 12});
    add_in_zone(2, 20, {21, 22});
    start();
    EXPECT_TRUE(controller().init_zones({{10, -1, {0, 1}}, {20, 0, {1}}}));
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    expect_look({11, 22});
    expect_steady_look({11, 22});
}

TEST_F(MergingTest, APausedPlaylistKeepsItsChannels) {
    add_in_zone(1, 10, {50});
    add_in_zone(2, 20, {200});
    start();
    EXPECT_TRUE(controller().init_zones({{10, 5, {0}}, {20, 3, {0}}}));
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    expect_look({50});
    EXPECT_TRUE(controller().pause(1));
    expect_steady_look({50});
}

TEST_F(MergingTest, AnEndedPlaylistKeepsItsChannelsUntilItIsStopped) {
    show()
        .recording("1.rec", Recording{}.dmx(1, {50}).bytes())
        .playlist(
            ShowPlaylist(1).loop(false).effect(ShowEffect("1.rec").output(wire_.output("1")).zone(1, 10)));
    add_in_zone(2, 20, {200});
    start();
    EXPECT_TRUE(controller().init_zones({{10, 5, {0}}, {20, 3, {0}}}));
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    EXPECT_TRUE(controller().play(2));
    expect_steady_look({50});
    controller().stop_playlist(1);
    expect_look({200});
}

TEST_F(MergingTest, TwoEffectsInOneZoneGiveItBackTogether) {
    show().recording("1.rec", Recording{}.dmx(1, {50}).bytes());
    const ShowEffect effect = ShowEffect("1.rec").fps(200).output(wire_.output("1")).zone(1, 10);
    show().playlist(ShowPlaylist(1).effect(effect).effect(effect));
    add_in_zone(2, 20, {200});
    start();
    EXPECT_TRUE(controller().init_zones({{10, 5, {0}}, {20, 3, {0}}}));
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    expect_look({50});
    mark_log();
    controller().stop_playlist(1);
    expect_look({200});
    expect_steady_look({200});
    EXPECT_THAT(log_since_mark(),
                testing::ElementsAre("info [Repeater::stop_playlist] Stop playlist (playlist_id:1)"));
}

TEST_F(MergingTest, StopForgetsTheMergedFrames) {
    add_in_zone(1, 10, {10, 20});
    add_in_zone(2, 20, {30, 40});
    start();
    EXPECT_TRUE(controller().init_zones({{10, 1, {0}}, {20, 1, {1}}}));
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    expect_look({10, 40});
    controller().stop();
    wire_.arrived();
    EXPECT_TRUE(controller().play(2));
    expect_steady_look({0, 40});
}

TEST_F(MergingTest, EachDestinationHasItsOwnFrame) {
    ForwarderSocket second;
    show()
        .recording("1.rec", Recording{}.dmx(1, {10, 11}).bytes())
        .recording("2.rec", Recording{}.dmx(1, {20, 21}).bytes())
        .playlist(ShowPlaylist(1).effect(
            ShowEffect("1.rec").fps(200).output(wire_.output("1")).output(second.output("1")).zone(1, 10)))
        .playlist(
            ShowPlaylist(2).effect(ShowEffect("2.rec").fps(200).output(second.output("1")).zone(1, 20)));
    start();
    EXPECT_TRUE(controller().init_zones({{10, 1, {0}}, {20, 1, {1}}}));
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    second.next_where([](const Frame& frame) { return frame.levels(2) == Levels{10, 21}; });
    expect_steady_look({10, 0});
}
