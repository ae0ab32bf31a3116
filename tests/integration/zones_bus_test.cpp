// Zones over the bus: what is refused, and what the frames on the wire show of the zones that are stored.

#include "service_test.h"

using namespace integration;
using namespace std::chrono_literals;

namespace {

class ZonesBusTest : public ServiceTest {
protected:
    /// A looping playlist on universe 1, channels 0 to 3 at 10, 20, 30 and 40, in a zone.
    void add_playlist_in_zone(int id, int zone) {
        show()
            .recording("levels.rec", Recording{}.dmx(1, {10, 20, 30, 40}).frame_delay(5ms).bytes())
            .playlist(
                ShowPlaylist(id).effect(ShowEffect("levels.rec").output(wire_.output("1")).zone(1, zone)));
    }

    /// The first four channels of a playlist's first frame; it is unloaded again.
    std::vector<int> levels_of(int playlist_id) {
        wire_.arrived();
        EXPECT_TRUE(controller().play(playlist_id));
        const std::vector<int> levels = wire_.next().levels(4);
        controller().stop();
        wire_.arrived();
        return levels;
    }

    ForwarderSocket wire_;
};

using Levels = std::vector<int>;

}  // namespace

TEST_F(ZonesBusTest, AZonesChannelsAreTheOnesThatAppear) {
    add_playlist_in_zone(1, 7);
    start();
    EXPECT_TRUE(controller().init_zones({{7, 1, {0, 2}}}));
    EXPECT_EQ(levels_of(1), (Levels{10, 0, 30, 0}));
}

TEST_F(ZonesBusTest, InitZonesWithTwoZonesOfTheSameIdKeepsTheSecond) {
    add_playlist_in_zone(1, 7);
    start();
    EXPECT_TRUE(controller().init_zones({{7, 1, {0}}, {7, 1, {3}}}));
    EXPECT_EQ(levels_of(1), (Levels{0, 0, 0, 40}));
}

TEST_F(ZonesBusTest, InitZonesReplacesAllZones) {
    start();
    EXPECT_TRUE(controller().init_zones({{1, 0, {0}}, {2, 0, {1}}}));
    EXPECT_TRUE(controller().init_zones({{3, 0, {0}}}));
    EXPECT_FALSE(controller().remove_zone(1));
    EXPECT_FALSE(controller().remove_zone(2));
    EXPECT_TRUE(controller().remove_zone(3));
}

TEST_F(ZonesBusTest, AnEmptyListIsValidAndEmptiesTheZones) {
    start();
    EXPECT_TRUE(controller().init_zones({}));
    EXPECT_TRUE(controller().add_zone({1, 0, {0}}));
    EXPECT_TRUE(controller().init_zones({}));
    EXPECT_FALSE(controller().remove_zone(1));
}

TEST_F(ZonesBusTest, InitZonesWithOneNegativeIdAmongValidOnesChangesNothing) {
    add_playlist_in_zone(1, 7);
    start();
    EXPECT_TRUE(controller().init_zones({{7, 1, {1}}}));
    EXPECT_FALSE(controller().init_zones({{7, 1, {0}}, {-1, 1, {0}}, {8, 1, {0}}}));
    EXPECT_FALSE(controller().remove_zone(8));
    EXPECT_EQ(levels_of(1), (Levels{0, 20, 0, 0}));
}

TEST_F(ZonesBusTest, AddZoneWithAKnownIdIsRefusedAndLeavesTheStoredZone) {
    add_playlist_in_zone(1, 7);
    start();
    EXPECT_TRUE(controller().add_zone({7, 1, {2}}));
    EXPECT_FALSE(controller().add_zone({7, 1, {0}}));
    EXPECT_EQ(levels_of(1), (Levels{0, 0, 30, 0}));
}

TEST_F(ZonesBusTest, AddZoneWithANegativeIdIsRefusedAndZeroIsNot) {
    start();
    EXPECT_FALSE(controller().add_zone({-1, 0, {0}}));
    EXPECT_FALSE(controller().remove_zone(-1));
    EXPECT_TRUE(controller().add_zone({0, 0, {0}}));
    EXPECT_TRUE(controller().remove_zone(0));
}

TEST_F(ZonesBusTest, UpdateZoneReplacesPriorityAndChannels) {
    add_playlist_in_zone(1, 7);
    start();
    EXPECT_TRUE(controller().init_zones({{7, 5, {0}}, {8, 4, {0, 1}}}));
    EXPECT_TRUE(controller().update_zone({7, 3, {1}}));
    EXPECT_EQ(levels_of(1), (Levels{0, 20, 0, 0}));
}

TEST_F(ZonesBusTest, UpdateZoneWithAnUnknownIdIsRefusedAndAddsNothing) {
    start();
    EXPECT_FALSE(controller().update_zone({5, 0, {0}}));
    EXPECT_FALSE(controller().update_zone({-5, 0, {0}}));
    EXPECT_FALSE(controller().remove_zone(5));
}

TEST_F(ZonesBusTest, RemovingAZoneIsRefusedTheSecondTime) {
    start();
    EXPECT_TRUE(controller().add_zone({5, 0, {0}}));
    EXPECT_TRUE(controller().remove_zone(5));
    EXPECT_FALSE(controller().remove_zone(5));
    EXPECT_TRUE(controller().add_zone({5, 0, {0}}));
}

TEST_F(ZonesBusTest, RemoveAllZonesSucceedsWithAndWithoutZones) {
    start();
    EXPECT_TRUE(controller().remove_all_zones());
    EXPECT_TRUE(controller().init_zones({{1, 0, {0}}, {2, 0, {0}}}));
    EXPECT_TRUE(controller().remove_all_zones());
    EXPECT_FALSE(controller().remove_zone(1));
    EXPECT_FALSE(controller().remove_zone(2));
}

TEST_F(ZonesBusTest, AZoneWithoutChannelsClaimsNothing) {
    add_playlist_in_zone(1, 7);
    start();
    EXPECT_TRUE(controller().add_zone({7, 1, {}}));
    EXPECT_EQ(levels_of(1), (Levels{0, 0, 0, 0}));
}

TEST_F(ZonesBusTest, ChannelsOutsideAUniverseAreStoredAndNeverUsed) {
    add_playlist_in_zone(1, 7);
    start();
    EXPECT_TRUE(controller().add_zone({7, 1, {-1, 512, 1'000'000, -2'000'000'000, 1}}));
    EXPECT_EQ(levels_of(1), (Levels{0, 20, 0, 0}));
}

TEST_F(ZonesBusTest, ChannelsMayComeInAnyOrderAndMoreThanOnce) {
    add_playlist_in_zone(1, 7);
    start();
    EXPECT_TRUE(controller().add_zone({7, 1, {3, 0, 3}}));
    EXPECT_EQ(levels_of(1), (Levels{10, 0, 0, 40}));
}

TEST_F(ZonesBusTest, EveryZoneOperationIsRefusedWhileAPlaylistIsLoaded) {
    add_playlist_in_zone(1, 7);
    add_playlist(2, false, Recording{}.dmx(1, {1}), {wire_.output("1")});
    start();
    EXPECT_TRUE(controller().init_zones({{7, 1, {0, 2}}}));
    const auto expect_refusals = [this] {
        EXPECT_FALSE(controller().init_zones({}));
        EXPECT_FALSE(controller().add_zone({8, 1, {0}}));
        EXPECT_FALSE(controller().update_zone({7, 1, {1}}));
        EXPECT_FALSE(controller().remove_zone(7));
        EXPECT_FALSE(controller().remove_all_zones());
    };
    EXPECT_TRUE(controller().play(1));
    expect_refusals();
    EXPECT_TRUE(controller().pause(1));
    expect_refusals();
    controller().stop_playlist(1);
    EXPECT_TRUE(controller().play(2));
    EXPECT_TRUE(controller().wait_for_stopped(1));
    expect_refusals();
    controller().stop_playlist(2);

    // Nothing was changed by the refused calls, and now everything may be.
    EXPECT_EQ(levels_of(1), (Levels{10, 0, 30, 0}));
    EXPECT_TRUE(controller().update_zone({7, 1, {1}}));
    EXPECT_TRUE(controller().add_zone({8, 1, {0}}));
    EXPECT_TRUE(controller().remove_zone(8));
    EXPECT_EQ(levels_of(1), (Levels{0, 20, 0, 0}));
    EXPECT_TRUE(controller().remove_all_zones());
    EXPECT_TRUE(controller().init_zones({{7, 1, {3}}}));
}

TEST_F(ZonesBusTest, StopMakesZonesChangeableAgain) {
    add_playlist_in_zone(1, 7);
    start();
    EXPECT_TRUE(controller().play(1));
    EXPECT_FALSE(controller().add_zone({7, 1, {0}}));
    controller().stop();
    EXPECT_TRUE(controller().add_zone({7, 1, {0}}));
}

TEST_F(ZonesBusTest, AFailedPlayLeavesZonesChangeable) {
    add_playlist(1, true, Recording{}, {wire_.output("1")});
    start();
    EXPECT_FALSE(controller().play(1));
    EXPECT_TRUE(controller().add_zone({7, 1, {0}}));
}

TEST_F(ZonesBusTest, ZoneOperationsLogNothing) {
    start();
    controller().set_log_level(6);
    EXPECT_TRUE(controller().init_zones({{1, 0, {0}}}));
    EXPECT_FALSE(controller().init_zones({{-1, 0, {0}}}));
    EXPECT_FALSE(controller().add_zone({1, 0, {0}}));
    EXPECT_TRUE(controller().update_zone({1, 1, {0}}));
    EXPECT_FALSE(controller().remove_zone(2));
    EXPECT_TRUE(controller().remove_all_zones());
    EXPECT_THAT(log_since_mark(), testing::IsEmpty());
}
