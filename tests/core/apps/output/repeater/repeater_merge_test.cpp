// Merged frames in the engine: ownership by zones, and what appears on the wire.

#include "support/engine_test.h"
#include "support/playlist_access.h"

namespace {

using Address = Playlist::Address;

/// Header bytes 1 to 18, then the channels.
std::vector<unsigned char> data_of(const std::vector<unsigned char>& channels) {
    std::vector<unsigned char> data;
    for (unsigned char byte = 1; byte <= 18; ++byte) {
        data.push_back(byte);
    }
    data.insert(data.end(), channels.begin(), channels.end());
    return data;
}

class RepeaterMergeTest : public EngineTest {
protected:
    RepeaterMergeTest() { start(); }

    /// A playlist with one effect that puts `universe` into `zone`.
    static void add_effect(Playlist& playlist, int universe, int zone,
                           const Playlist::Effect::DestAddrMap& outputs = {}) {
        Playlist::Effect effect;
        effect.universes = {{universe, zone}};
        effect.outputs = outputs;
        PlaylistAccess::effects(playlist).push_back(effect);
    }
    [[nodiscard]] MergePacket& frame(int universe, const Address* destination = nullptr) {
        return RepeaterAccess::get_merge_packet(engine(), universe, destination);
    }
    [[nodiscard]] std::size_t frames() { return RepeaterAccess::merge_packet_count(engine()); }

    const Address first_{"192.0.2.1", 2000};
    const Address second_{"192.0.2.2", 2001};
};

TEST_F(RepeaterMergeTest, WithoutAFrameTheBlankOneIsHandedOutDark) {
    MergePacket& blank = frame(3);
    blank.packet.fill(7);
    EXPECT_EQ(frame(3).packet, MergePacket().packet);
    EXPECT_EQ(&frame(4, &first_), &blank);
    EXPECT_EQ(frames(), 0U);
}

TEST_F(RepeaterMergeTest, InitMakesAFrameOnceAndLeavesAnExistingOne) {
    MergePacket& made = RepeaterAccess::init_merge_packet(engine(), 3, &first_);
    EXPECT_EQ(made.packet, MergePacket().packet);
    EXPECT_EQ(made.owners, MergePacket().owners);
    made.packet[20] = 9;
    EXPECT_EQ(&RepeaterAccess::init_merge_packet(engine(), 3, &first_), &made);
    EXPECT_EQ(made.packet[20], 9);
    EXPECT_EQ(&frame(3, &first_), &made);
    EXPECT_NE(&frame(3), &made);
    EXPECT_EQ(frames(), 1U);
}

TEST_F(RepeaterMergeTest, DeletingAFrameThatIsNotThereDoesNothing) {
    RepeaterAccess::init_merge_packet(engine(), 3, &first_);
    RepeaterAccess::delete_merge_packet(engine(), 3, &second_);
    EXPECT_EQ(frames(), 1U);
    RepeaterAccess::delete_merge_packet(engine(), 3, &first_);
    EXPECT_EQ(frames(), 0U);
}

TEST_F(RepeaterMergeTest, AnOwnerIsTakenForEachDestinationOfTheUniverse) {
    ASSERT_TRUE(engine().add_zone({1, 5, {0, 3}}));
    Playlist playlist;
    add_effect(playlist, 7, 1, {{7, {first_, second_}}, {-1, {Address("192.0.2.3", 2002)}}});
    RepeaterAccess::add_owner(engine(), playlist);
    EXPECT_EQ(frames(), 2U);
    EXPECT_EQ(frame(7, &first_).zones, (std::vector<int>{1}));
    EXPECT_EQ(frame(7, &first_).owners[0], 5);
    EXPECT_EQ(frame(7, &first_).owners[1], -1);
    EXPECT_EQ(frame(7, &first_).owners[3], 5);
    EXPECT_EQ(frame(7, &second_).zones, (std::vector<int>{1}));
}

TEST_F(RepeaterMergeTest, WithoutDestinationsOfItsOwnAUniverseTakesThoseOfAll) {
    ASSERT_TRUE(engine().add_zone({1, 5, {0}}));
    Playlist playlist;
    add_effect(playlist, 7, 1, {{8, {first_}}, {-1, {second_}}});
    RepeaterAccess::add_owner(engine(), playlist);
    EXPECT_EQ(frames(), 1U);
    EXPECT_EQ(frame(7, &second_).zones, (std::vector<int>{1}));
}

TEST_F(RepeaterMergeTest, WithoutAnyDestinationTheUniverseItselfIsOwned) {
    ASSERT_TRUE(engine().add_zone({1, 5, {0}}));
    Playlist playlist;
    add_effect(playlist, 7, 1, {{8, {first_}}});
    RepeaterAccess::add_owner(engine(), playlist);
    EXPECT_EQ(frames(), 1U);
    EXPECT_EQ(frame(7).zones, (std::vector<int>{1}));
}

TEST_F(RepeaterMergeTest, AnEmptyDestinationListTakesNothing) {
    ASSERT_TRUE(engine().add_zone({1, 5, {0}}));
    Playlist playlist;
    add_effect(playlist, 7, 1, {{7, {}}, {-1, {second_}}});
    add_effect(playlist, 8, 1, {{-1, {}}});
    RepeaterAccess::add_owner(engine(), playlist);
    EXPECT_EQ(frames(), 0U);
}

TEST_F(RepeaterMergeTest, AnUnknownZoneAndAUniverseWithoutOneTakeNothing) {
    Playlist playlist;
    add_effect(playlist, 7, 1);
    PlaylistAccess::effects(playlist).emplace_back().outputs[7] = {first_};
    RepeaterAccess::add_owner(engine(), playlist);
    EXPECT_EQ(frames(), 0U);
}

TEST_F(RepeaterMergeTest, TheSameZoneInTwoEffectsIsTakenTwiceAndGivenBackTwice) {
    ASSERT_TRUE(engine().add_zone({1, 5, {0}}));
    Playlist playlist;
    add_effect(playlist, 7, 1);
    add_effect(playlist, 7, 1);
    Playlist other;
    add_effect(other, 7, 1);
    RepeaterAccess::add_owner(engine(), other);
    RepeaterAccess::add_owner(engine(), playlist);
    EXPECT_EQ(frame(7).zones, (std::vector<int>{1, 1, 1}));
    RepeaterAccess::remove_owner(engine(), playlist);
    EXPECT_EQ(frame(7).zones, (std::vector<int>{1}));
    EXPECT_EQ(frame(7).owners[0], 5);
    RepeaterAccess::remove_owner(engine(), other);
    EXPECT_EQ(frames(), 0U);
}

TEST_F(RepeaterMergeTest, RemovingRebuildsTheOwnersFromTheZonesThatRemain) {
    ASSERT_TRUE(engine().init_zones({{1, 5, {0, 1}}, {2, 3, {1, 2}}, {3, 4, {2}}}));
    Playlist high;
    add_effect(high, 7, 1);
    Playlist low;
    add_effect(low, 7, 2);
    add_effect(low, 7, 3);
    RepeaterAccess::add_owner(engine(), low);
    RepeaterAccess::add_owner(engine(), high);
    EXPECT_EQ(frame(7).owners[1], 5);
    frame(7).packet[18] = 99;
    RepeaterAccess::remove_owner(engine(), high);
    EXPECT_EQ(frame(7).zones, (std::vector<int>{2, 3}));
    EXPECT_EQ(frame(7).owners[0], -1);
    EXPECT_EQ(frame(7).owners[1], 3);
    EXPECT_EQ(frame(7).owners[2], 4);
    // The frame's bytes stay: receivers keep what they show.
    EXPECT_EQ(frame(7).packet[18], 99);
}

TEST_F(RepeaterMergeTest, RemovingTakesOnlyTheFirstEntryOfAZone) {
    ASSERT_TRUE(engine().init_zones({{1, 5, {0}}, {2, 3, {0}}}));
    Playlist first;
    add_effect(first, 7, 1);
    Playlist second;
    add_effect(second, 7, 2);
    for (const Playlist* playlist : {&first, &second, &first}) {
        RepeaterAccess::add_owner(engine(), *playlist);
    }
    EXPECT_EQ(frame(7).zones, (std::vector<int>{1, 2, 1}));
    RepeaterAccess::remove_owner(engine(), first);
    EXPECT_EQ(frame(7).zones, (std::vector<int>{2, 1}));
}

TEST_F(RepeaterMergeTest, ARebuildSkipsZonesThatNoLongerExist) {
    ASSERT_TRUE(engine().init_zones({{1, 5, {0}}, {2, 3, {0}}}));
    Playlist first;
    add_effect(first, 7, 1);
    Playlist second;
    add_effect(second, 7, 2);
    RepeaterAccess::add_owner(engine(), first);
    RepeaterAccess::add_owner(engine(), second);
    RepeaterAccess::erase_zone(engine(), 2);
    RepeaterAccess::remove_owner(engine(), first);
    EXPECT_EQ(frame(7).zones, (std::vector<int>{2}));
    EXPECT_EQ(frame(7).owners[0], -1);
}

TEST_F(RepeaterMergeTest, RemovingWhatWasNotTakenIsLoggedAndChangesNothing) {
    ASSERT_TRUE(engine().init_zones({{1, 5, {0}}, {2, 3, {0}}}));
    Playlist taken;
    add_effect(taken, 7, 1);
    RepeaterAccess::add_owner(engine(), taken);
    Playlist missing;
    add_effect(missing, 7, 2);
    RepeaterAccess::remove_owner(engine(), missing);
    EXPECT_TRUE(
        log().has("[Repeater::remove_merge_packet_owner] Invalid merge packet ownership (id:2, uni:7, "
                  "ip:-1, port:-1)"));
    EXPECT_EQ(frame(7).zones, (std::vector<int>{1}));
    EXPECT_EQ(frame(7).owners[0], 5);
}

TEST_F(RepeaterMergeTest, AMissingOwnershipShowsAddressAndPort) {
    ASSERT_TRUE(engine().add_zone({1, 5, {0}}));
    Playlist missing;
    add_effect(missing, 7, 1, {{7, {Address("10.0.0.5", 2000), Address("192.0.2.1", 2001)}}});
    release_log();
    const auto remove = [&] { RepeaterAccess::remove_owner(engine(), missing); };
    // 0x0A000005 and 0xC0000201 as signed numbers.
    EXPECT_EQ(level_of("[Repeater::remove_merge_packet_owner] Invalid merge packet ownership (id:1, uni:7, "
                       "ip:167772165, port:2000)",
                       remove),
              3);
    EXPECT_EQ(level_of("[Repeater::remove_merge_packet_owner] Invalid merge packet ownership (id:1, uni:7, "
                       "ip:-1073741311, port:2001)",
                       remove),
              3);
}

TEST_F(RepeaterMergeTest, DestinationsFromPort32768OnShareOneFrame) {
    ASSERT_TRUE(engine().add_zone({1, 5, {0}}));
    Playlist playlist;
    add_effect(playlist, 7, 1, {{7, {Address("192.0.2.1", 40000), Address("10.0.0.5", 40000)}}});
    RepeaterAccess::add_owner(engine(), playlist);
    EXPECT_EQ(frames(), 1U);
    const Address third("192.0.2.77", 40000);
    EXPECT_EQ(frame(7, &third).zones, (std::vector<int>{1, 1}));
}

TEST_F(RepeaterMergeTest, APacketOfAnUnknownZoneGivesTheFrameItsHeaderOnly) {
    MergePacket merge_packet;
    RepeaterAccess::modify_packet(engine(), merge_packet, data_of({9}), 100, 77);
    EXPECT_EQ(merge_packet.packet[0], 1);
    EXPECT_EQ(merge_packet.packet[17], 18);
    EXPECT_EQ(merge_packet.packet[18], 0);
}

TEST_F(RepeaterMergeTest, AShortPacketLeavesTheOtherChannelsAndItsHeaderHeadsTheFrame) {
    MergePacket merge_packet;
    RepeaterAccess::modify_packet(engine(), merge_packet, data_of(std::vector<unsigned char>(512, 50)), 100,
                                  -1);
    std::vector<unsigned char> shorter = data_of(std::vector<unsigned char>(10, 60));
    shorter[16] = 0;
    shorter[17] = 10;
    RepeaterAccess::modify_packet(engine(), merge_packet, shorter, 100, -1);
    EXPECT_EQ(merge_packet.packet[16], 0);
    EXPECT_EQ(merge_packet.packet[17], 10);
    EXPECT_EQ(merge_packet.packet[18 + 9], 60);
    EXPECT_EQ(merge_packet.packet[18 + 10], 50);
    EXPECT_EQ(merge_packet.packet[18 + 511], 50);
}

TEST_F(RepeaterMergeTest, AZonesPacketWritesItsChannelsWithBrightness) {
    ASSERT_TRUE(engine().add_zone({1, 5, {2, 0}}));
    MergePacket merge_packet;
    merge_packet.owners[0] = 5;
    merge_packet.owners[1] = 5;
    merge_packet.owners[2] = 6;
    RepeaterAccess::modify_packet(engine(), merge_packet, data_of({255, 255, 255}), 50, 1);
    EXPECT_EQ(merge_packet.packet[18], 127);
    EXPECT_EQ(merge_packet.packet[19], 0);
    EXPECT_EQ(merge_packet.packet[20], 0);
}

/// Two playlists on universe 0 at one destination, seen on the wire.
class RepeaterMergeOnTheWireTest : public EngineTest {
protected:
    RepeaterMergeOnTheWireTest() { start(); }

    void add_playlist(int id, int zone, const std::vector<std::uint8_t>& levels) {
        const std::string path = std::to_string(id) + ".rec";
        show.recording(path, Recording{}.dmx(0, levels).bytes());
        ShowEffect effect(path);
        effect.fps(25).ppf(1).output("0:192.0.2.1:6454");
        if (zone != kNone) {
            effect.zone(0, zone);
        }
        show.playlist(ShowPlaylist(id).effect(effect));
    }
    /// Levels of the first three channels, once both playlists have written since the call.
    std::vector<int> settled() {
        EXPECT_TRUE(wait_for_more(0, 4));
        const SentDatagram sent = last_sent(0);
        return {sent.channel(0), sent.channel(1), sent.channel(2)};
    }
    static constexpr int kNone = -1000;
};

TEST_F(RepeaterMergeOnTheWireTest, TheHigherPriorityShowsAndAfterItsStopTheLower) {
    ASSERT_TRUE(engine().init_zones({{1, 5, {0, 1}}, {2, 3, {1, 2}}}));
    add_playlist(1, 1, {10, 10, 10});
    add_playlist(2, 2, {20, 20, 20});
    ASSERT_TRUE(engine().play_playlist(2));
    EXPECT_EQ(settled(), (std::vector<int>{0, 20, 20}));
    ASSERT_TRUE(engine().play_playlist(1));
    EXPECT_EQ(settled(), (std::vector<int>{10, 10, 20}));
    engine().stop_playlist(1);
    // What nobody writes any more keeps its level.
    EXPECT_EQ(settled(), (std::vector<int>{10, 20, 20}));
}

TEST_F(RepeaterMergeOnTheWireTest, APlaylistWithoutAZoneFillsTheChannelsThatNoZoneOwns) {
    ASSERT_TRUE(engine().add_zone({1, 0, {1}}));
    add_playlist(1, 1, {10, 10, 10});
    add_playlist(2, kNone, {20, 20, 20});
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(engine().play_playlist(2));
    EXPECT_EQ(settled(), (std::vector<int>{20, 10, 20}));
}

TEST_F(RepeaterMergeOnTheWireTest, TwoPlaylistsWithoutZonesAlternate) {
    add_playlist(1, kNone, {10, 0, 10});
    add_playlist(2, kNone, {0, 20});
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(engine().play_playlist(2));
    ASSERT_TRUE(eventually([this] { return flags(2) == "1,0,0"; }));
    ASSERT_TRUE(wait_for_more(0, 4));
    int first = 0;
    int second = 0;
    const std::vector<SentDatagram> all = sent_to(0);
    for (const SentDatagram& sent : all) {
        const std::vector<int> levels{sent.channel(0), sent.channel(1), sent.channel(2), sent.length()};
        first += levels == std::vector<int>{10, 0, 10, 3} ? 1 : 0;
        second += levels == std::vector<int>{0, 20, 0, 2} ? 1 : 0;
    }
    EXPECT_GT(first, 0);
    EXPECT_GT(second, 0);
    EXPECT_EQ(static_cast<std::size_t>(first + second), all.size());
}

TEST_F(RepeaterMergeOnTheWireTest, TheHeaderOfTheNewestPacketHeadsTheMergedFrame) {
    ASSERT_TRUE(engine().init_zones({{1, 5, {0}}, {2, 5, {1}}}));
    add_playlist(1, 1, {10, 10, 10, 10});
    add_playlist(2, 2, {20, 20});
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_more(0, 2));
    ASSERT_TRUE(engine().play_playlist(2));
    ASSERT_TRUE(wait_for_more(0, 4));
    int longer = 0;
    int shorter = 0;
    for (const SentDatagram& sent : sent_to(0)) {
        longer += sent.length() == 4 ? 1 : 0;
        if (sent.length() == 2) {
            ++shorter;
            EXPECT_EQ(sent.channel(0), 10);
            EXPECT_EQ(sent.channel(1), 20);
        }
    }
    EXPECT_GT(longer, 0);
    EXPECT_GT(shorter, 0);
}

TEST_F(RepeaterMergeOnTheWireTest, AZoneOfPriorityMinusOneShowsWhereNobodyOwns) {
    ASSERT_TRUE(engine().init_zones({{1, -1, {0, 1}}, {2, 3, {1}}}));
    add_playlist(1, 1, {10, 10, 10});
    add_playlist(2, 2, {20, 20, 20});
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(engine().play_playlist(2));
    EXPECT_EQ(settled(), (std::vector<int>{10, 20, 0}));
}

TEST_F(RepeaterMergeOnTheWireTest, BrightnessScalesOnlyThePlaylistsOwnChannels) {
    ASSERT_TRUE(engine().init_zones({{1, 5, {0}}, {2, 5, {1}}}));
    add_playlist(1, 1, {255, 255});
    add_playlist(2, 2, {255, 255});
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(engine().play_playlist(2));
    // From here on each comes round again and again, and the two take turns.
    ASSERT_TRUE(wait_until_loaded(1));
    ASSERT_TRUE(wait_until_loaded(2));
    engine().set_brightness(1, 50);
    EXPECT_EQ(settled(), (std::vector<int>{127, 255, 0}));
}

}  // namespace
