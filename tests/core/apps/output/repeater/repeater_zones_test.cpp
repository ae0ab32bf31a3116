// The zone operations: what they store, what they refuse.

#include <limits>

#include "support/engine_test.h"

namespace {

class RepeaterZonesTest : public EngineTest {
protected:
    RepeaterZonesTest() { start(); }
    [[nodiscard]] std::unordered_map<int, Zone> zones() { return RepeaterAccess::zones(engine()); }
    /// "id/priority:channel,channel," of a stored zone; empty without one.
    [[nodiscard]] std::string zone(int id) {
        const auto all = zones();
        const auto found = all.find(id);
        if (found == all.end()) {
            return {};
        }
        std::string text =
            std::to_string(found->second.id) + "/" + std::to_string(found->second.priority) + ":";
        for (const int channel : found->second.channels) {
            text += std::to_string(channel) + ",";
        }
        return text;
    }
    void load_a_playlist() {
        show.playlist(steady(1, 0, {1}));
        ASSERT_TRUE(engine().play_playlist(1));
    }
};

TEST_F(RepeaterZonesTest, InitReplacesAllZones) {
    ASSERT_TRUE(engine().add_zone({9, 1, {1}}));
    EXPECT_TRUE(engine().init_zones({{0, 5, {0, 1}}, {2, 3, {}}}));
    EXPECT_EQ(zones().size(), 2U);
    EXPECT_EQ(zone(0), "0/5:0,1,");
    EXPECT_EQ(zone(2), "2/3:");
}

TEST_F(RepeaterZonesTest, OfEqualIdsTheLastZoneStays) {
    EXPECT_TRUE(engine().init_zones({{4, 1, {1}}, {4, 2, {2}}}));
    EXPECT_EQ(zones().size(), 1U);
    EXPECT_EQ(zone(4), "4/2:2,");
}

TEST_F(RepeaterZonesTest, OneNegativeIdRefusesTheWholeListAndChangesNothing) {
    ASSERT_TRUE(engine().add_zone({9, 1, {1}}));
    EXPECT_FALSE(engine().init_zones({{1, 1, {1}}, {-1, 2, {2}}, {3, 1, {1}}}));
    EXPECT_EQ(zones().size(), 1U);
    EXPECT_EQ(zone(9), "9/1:1,");
}

TEST_F(RepeaterZonesTest, AnEmptyListEmptiesTheTable) {
    ASSERT_TRUE(engine().add_zone({9, 1, {1}}));
    EXPECT_TRUE(engine().init_zones({}));
    EXPECT_TRUE(zones().empty());
}

TEST_F(RepeaterZonesTest, AddStoresAZoneAsItIs) {
    EXPECT_TRUE(engine().add_zone({0, -4, {511, -3, 512, 7, 7}}));
    EXPECT_EQ(zone(0), "0/-4:511,-3,512,7,7,");
}

TEST_F(RepeaterZonesTest, AddRefusesAKnownIdAndLeavesTheStoredZone) {
    ASSERT_TRUE(engine().add_zone({3, 5, {1}}));
    EXPECT_FALSE(engine().add_zone({3, 6, {2}}));
    EXPECT_EQ(zone(3), "3/5:1,");
}

TEST_F(RepeaterZonesTest, AddRefusesANegativeId) {
    EXPECT_FALSE(engine().add_zone({-1, 6, {2}}));
    EXPECT_FALSE(engine().add_zone({std::numeric_limits<int>::min(), 6, {2}}));
    EXPECT_TRUE(zones().empty());
}

TEST_F(RepeaterZonesTest, UpdateReplacesPriorityAndChannels) {
    ASSERT_TRUE(engine().add_zone({3, 5, {1}}));
    EXPECT_TRUE(engine().update_zone({3, 6, {2, 4}}));
    EXPECT_EQ(zone(3), "3/6:2,4,");
}

TEST_F(RepeaterZonesTest, UpdateRefusesAnUnknownIdAndAddsNothing) {
    EXPECT_FALSE(engine().update_zone({3, 6, {2}}));
    EXPECT_FALSE(engine().update_zone({-1, 6, {2}}));
    EXPECT_TRUE(zones().empty());
}

TEST_F(RepeaterZonesTest, RemoveErasesOneZone) {
    ASSERT_TRUE(engine().init_zones({{1, 1, {}}, {2, 2, {}}}));
    EXPECT_TRUE(engine().remove_zone(1));
    EXPECT_EQ(zone(1), "");
    EXPECT_EQ(zone(2), "2/2:");
}

TEST_F(RepeaterZonesTest, RemoveRefusesAnUnknownId) {
    EXPECT_FALSE(engine().remove_zone(1));
    EXPECT_FALSE(engine().remove_zone(-1));
}

TEST_F(RepeaterZonesTest, RemovingAllOfNothingIsFine) {
    EXPECT_TRUE(engine().remove_all_zones());
    ASSERT_TRUE(engine().init_zones({{1, 1, {}}, {2, 2, {}}}));
    EXPECT_TRUE(engine().remove_all_zones());
    EXPECT_TRUE(zones().empty());
}

TEST_F(RepeaterZonesTest, NoOperationSaysAnything) {
    capture(6);
    engine().init_zones({{1, 1, {}}, {-2, 2, {}}});
    engine().add_zone({1, 1, {}});
    engine().add_zone({1, 1, {}});
    engine().update_zone({5, 1, {}});
    engine().remove_zone(5);
    engine().remove_all_zones();
    EXPECT_TRUE(log().lines().empty());
}

TEST_F(RepeaterZonesTest, EverythingIsRefusedWhileAPlaylistIsLoadedAndChangesNothing) {
    ASSERT_TRUE(engine().add_zone({1, 5, {0}}));
    load_a_playlist();
    const auto expect_refusals = [this] {
        EXPECT_FALSE(engine().init_zones({}));
        EXPECT_FALSE(engine().add_zone({2, 1, {}}));
        EXPECT_FALSE(engine().update_zone({1, 9, {9}}));
        EXPECT_FALSE(engine().remove_zone(1));
        EXPECT_FALSE(engine().remove_all_zones());
        EXPECT_EQ(zones().size(), 1U);
        EXPECT_EQ(zone(1), "1/5:0,");
    };
    expect_refusals();
    // Paused is loaded, too.
    ASSERT_TRUE(engine().pause_playlist(1));
    expect_refusals();
}

TEST_F(RepeaterZonesTest, AnEndedPlaylistIsStillLoaded) {
    show.recording("a.rec", Recording{}.dmx(0, {1}).bytes());
    show.playlist(ShowPlaylist(1).loop(false).effect(ShowEffect("a.rec").output("*:192.0.2.1:6454")));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(eventually([this] { return flags(1) == "1,0,1"; }));
    EXPECT_FALSE(engine().remove_all_zones());
}

TEST_F(RepeaterZonesTest, EverythingSucceedsAgainOnceNothingIsLoaded) {
    load_a_playlist();
    engine().stop_playlist(1);
    EXPECT_TRUE(engine().init_zones({{1, 5, {0}}}));
    EXPECT_TRUE(engine().add_zone({2, 1, {}}));
    EXPECT_TRUE(engine().update_zone({1, 9, {9}}));
    EXPECT_TRUE(engine().remove_zone(1));
    EXPECT_TRUE(engine().remove_all_zones());
}

}  // namespace
