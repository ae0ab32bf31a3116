// The playlist in memory: settings, stored packets and the routing of each.

#include "playlist.h"

#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "support/playlist_access.h"

using namespace std::chrono_literals;

namespace {

Playlist::Packet packet_of(int universe, std::vector<unsigned char> data = {1, 2, 3},
                           ondra::Clock::duration delay = 0ns) {
    return {universe, std::move(data), delay};
}

/// `count` packets of universe 0.
void add_packets(Playlist& playlist, int count, int universe = 0) {
    for (int number = 0; number < count; ++number) {
        playlist.add_packet(packet_of(universe));
    }
}

/// An effect that sends universe 0 to one address, by whose port a test tells effects apart.
Playlist::Effect effect_with_port(int port) {
    Playlist::Effect effect;
    effect.outputs[0] = {Playlist::Address("192.0.2.1", port)};
    return effect;
}

/// The port that packet `index` goes to; -1 when packet_info() refuses.
int port_of(const Playlist& playlist, int index) {
    const Playlist::Address* addresses = nullptr;
    int count = 0;
    int zone = 0;
    return playlist.packet_info(index, &addresses, count, zone) ? addresses->port : -1;
}

TEST(PlaylistTest, ANewPlaylistLoopsAtFullBrightnessWithoutABoostAndHasNoId) {
    const Playlist playlist;
    EXPECT_EQ(playlist.id(), -1);
    EXPECT_TRUE(playlist.loop_mode());
    EXPECT_EQ(playlist.get_brightness(), 100);
    EXPECT_EQ(playlist.get_speed_boost(), 0);
    EXPECT_EQ(playlist.packets_loaded(), 0);
    EXPECT_TRUE(playlist.effects().empty());
    EXPECT_TRUE(playlist.get_root_dir().isEmpty());
}

TEST(PlaylistTest, ANewEffectKeepsItsRecordingsTimingAndHasNoFrameSize) {
    const Playlist::Effect effect;
    EXPECT_EQ(effect.fps, -1);
    EXPECT_EQ(effect.ppf, -1);
    EXPECT_FALSE(effect.auto_ppf);
    EXPECT_FALSE(effect.fixed_fps);
}

TEST(PlaylistTest, SettingsAreStoredWithoutARangeCheck) {
    Playlist playlist;
    playlist.set_brightness(-7);
    playlist.set_speed_boost(100000);
    playlist.set_root_dir(QStringLiteral("a/b"));
    EXPECT_EQ(playlist.get_brightness(), -7);
    EXPECT_EQ(playlist.get_speed_boost(), 100000);
    EXPECT_EQ(playlist.get_root_dir(), QStringLiteral("a/b"));
}

TEST(PlaylistTest, PacketOnEmptyPlaylistIsRefusedAndLeavesTheOutputAlone) {
    const Playlist playlist;
    Playlist::Packet out = packet_of(9, {4, 5}, 6ns);
    EXPECT_FALSE(playlist.packet(0, out));
    EXPECT_EQ(out.universe, 9);
    EXPECT_EQ(out.data, (std::vector<unsigned char>{4, 5}));
    EXPECT_EQ(out.delay, 6ns);
}

TEST(PlaylistTest, AStoredPacketComesBackWithUniverseBytesAndDelay) {
    Playlist playlist;
    playlist.add_packet(packet_of(3, {1, 2}, 40ms));
    playlist.add_packet(packet_of(4, {7}, -5ns));
    Playlist::Packet out;
    ASSERT_TRUE(playlist.packet(1, out));
    EXPECT_EQ(out.universe, 4);
    EXPECT_EQ(out.data, (std::vector<unsigned char>{7}));
    EXPECT_EQ(out.delay, -5ns);
    ASSERT_TRUE(playlist.packet(0, out));
    EXPECT_EQ(out.universe, 3);
    EXPECT_EQ(out.data, (std::vector<unsigned char>{1, 2}));
    EXPECT_EQ(out.delay, 40ms);
}

TEST(PlaylistTest, TheIndexBehindTheLastPacketIsRefused) {
    Playlist playlist;
    add_packets(playlist, 2);
    Playlist::Packet out;
    EXPECT_TRUE(playlist.packet(1, out));
    EXPECT_FALSE(playlist.packet(2, out));
}

TEST(PlaylistTest, ANegativeIndexIsRefused) {
    Playlist playlist;
    add_packets(playlist, 1);
    Playlist::Packet out;
    EXPECT_FALSE(playlist.packet(-1, out));
    EXPECT_FALSE(playlist.packet(std::numeric_limits<int>::min(), out));
}

TEST(PlaylistTest, PacketsLoadedCountsWhatIsStored) {
    Playlist playlist;
    add_packets(playlist, 3);
    EXPECT_EQ(playlist.packets_loaded(), 3);
}

TEST(PlaylistTest, AddingACopyLeavesTheCallersPacketAsItIs) {
    Playlist playlist;
    const Playlist::Packet packet = packet_of(1, {1, 2, 3});
    playlist.add_packet(packet);
    EXPECT_EQ(packet.data, (std::vector<unsigned char>{1, 2, 3}));
    EXPECT_NE(PlaylistAccess::stored(playlist, 0)->data.data(), packet.data.data());
}

TEST(PlaylistTest, AddingARvalueKeepsItsBuffer) {
    Playlist playlist;
    Playlist::Packet packet = packet_of(1, {1, 2, 3});
    const unsigned char* const buffer = packet.data.data();
    playlist.add_packet(std::move(packet));
    EXPECT_EQ(PlaylistAccess::stored(playlist, 0)->data.data(), buffer);
}

TEST(PlaylistTest, FetchingReusesTheBufferOfTheOutput) {
    Playlist playlist;
    playlist.add_packet(packet_of(0, std::vector<unsigned char>(530, 1)));
    playlist.add_packet(packet_of(0, std::vector<unsigned char>(100, 2)));
    Playlist::Packet out;
    ASSERT_TRUE(playlist.packet(0, out));
    const unsigned char* const buffer = out.data.data();
    ASSERT_TRUE(playlist.packet(1, out));
    ASSERT_TRUE(playlist.packet(0, out));
    EXPECT_EQ(out.data.data(), buffer);
}

TEST(PlaylistTest, WhileNothingIsReadCompletelyEveryPacketBelongsToTheFirstEffect) {
    Playlist playlist;
    PlaylistAccess::effects(playlist) = {effect_with_port(2000), effect_with_port(2001)};
    PlaylistAccess::set_progress(playlist, {3, -1}, 0);
    add_packets(playlist, 10);
    EXPECT_EQ(port_of(playlist, 0), 2000);
    EXPECT_EQ(port_of(playlist, 3), 2000);
    EXPECT_EQ(port_of(playlist, 9), 2000);
}

TEST(PlaylistTest, APacketBelongsToTheFirstEffectWhoseRangeReachesIt) {
    Playlist playlist;
    PlaylistAccess::effects(playlist) = {effect_with_port(2000), effect_with_port(2001)};
    PlaylistAccess::set_progress(playlist, {9, 19}, 2);
    add_packets(playlist, 26);
    EXPECT_EQ(port_of(playlist, 0), 2000);
    EXPECT_EQ(port_of(playlist, 9), 2000);
    EXPECT_EQ(port_of(playlist, 10), 2001);
    EXPECT_EQ(port_of(playlist, 19), 2001);
}

TEST(PlaylistTest, APacketBehindTheLastEffectHasNoRoutingAndLeavesTheOutputsAlone) {
    Playlist playlist;
    PlaylistAccess::effects(playlist) = {effect_with_port(2000), effect_with_port(2001)};
    PlaylistAccess::set_progress(playlist, {9, 19}, 2);
    add_packets(playlist, 26);
    const Playlist::Address marker("192.0.2.9", 1);
    const Playlist::Address* addresses = &marker;
    int count = 5;
    int zone = 6;
    EXPECT_FALSE(playlist.packet_info(20, &addresses, count, zone));
    EXPECT_FALSE(playlist.packet_info(25, &addresses, count, zone));
    EXPECT_EQ(addresses, &marker);
    EXPECT_EQ(count, 5);
    EXPECT_EQ(zone, 6);
}

TEST(PlaylistTest, WithoutEffectsThereIsNoRouting) {
    Playlist playlist;
    add_packets(playlist, 1);
    EXPECT_EQ(port_of(playlist, 0), -1);
}

TEST(PlaylistTest, APacketBehindTheEffectsReadBelongsToTheOneBeingLoaded) {
    Playlist playlist;
    PlaylistAccess::effects(playlist) = {effect_with_port(2000), effect_with_port(2001),
                                         effect_with_port(2002)};
    PlaylistAccess::set_progress(playlist, {9, -1, -1}, 1);
    add_packets(playlist, 12);
    EXPECT_EQ(port_of(playlist, 9), 2000);
    EXPECT_EQ(port_of(playlist, 10), 2001);
    EXPECT_EQ(port_of(playlist, 11), 2001);
}

TEST(PlaylistTest, EffectsWithoutPacketsArePassedOver) {
    Playlist playlist;
    PlaylistAccess::effects(playlist) = {effect_with_port(2000), effect_with_port(2001),
                                         effect_with_port(2002)};
    PlaylistAccess::set_progress(playlist, {-1, -1, 4}, 3);
    add_packets(playlist, 5);
    EXPECT_EQ(port_of(playlist, 0), 2002);
    EXPECT_EQ(port_of(playlist, 4), 2002);
}

/// One effect that is loading, and one packet of universe 7 in it.
class PlaylistRoutingTest : public testing::Test {
protected:
    PlaylistRoutingTest() {
        PlaylistAccess::effects(playlist_).resize(1);
        PlaylistAccess::set_progress(playlist_, {0}, 0);
        add_packets(playlist_, 1, 7);
    }
    Playlist::Effect& effect() { return PlaylistAccess::effects(playlist_).front(); }
    bool ask() { return playlist_.packet_info(0, &addresses_, count_, zone_); }

    const Playlist::Address* addresses_ = nullptr;
    int count_ = 99;
    int zone_ = 99;

private:
    Playlist playlist_;
};

TEST_F(PlaylistRoutingTest, AUniversesOwnDestinationsAreGivenInOrder) {
    effect().outputs[7] = {Playlist::Address("192.0.2.1", 2000), Playlist::Address("192.0.2.2", 2001)};
    effect().outputs[-1] = {Playlist::Address("192.0.2.3", 2002)};
    ASSERT_TRUE(ask());
    ASSERT_EQ(count_, 2);
    EXPECT_EQ(addresses_[0].ip, "192.0.2.1");
    EXPECT_EQ(addresses_[0].port, 2000);
    EXPECT_EQ(addresses_[1].ip, "192.0.2.2");
    EXPECT_EQ(addresses_[1].port, 2001);
}

TEST_F(PlaylistRoutingTest, AUniverseWithoutDestinationsOfItsOwnHasThoseOfAllUniverses) {
    effect().outputs[6] = {Playlist::Address("192.0.2.1", 2000)};
    effect().outputs[-1] = {Playlist::Address("192.0.2.3", 2002)};
    ASSERT_TRUE(ask());
    ASSERT_EQ(count_, 1);
    EXPECT_EQ(addresses_[0].ip, "192.0.2.3");
}

TEST_F(PlaylistRoutingTest, WithNeitherEntryThereIsNoDestinationButARouting) {
    effect().outputs[6] = {Playlist::Address("192.0.2.1", 2000)};
    ASSERT_TRUE(ask());
    EXPECT_EQ(addresses_, nullptr);
    EXPECT_EQ(count_, 0);
}

TEST_F(PlaylistRoutingTest, APresentButEmptyListIsNotTheSameAsNone) {
    effect().outputs[7] = {};
    effect().outputs[-1] = {Playlist::Address("192.0.2.3", 2002)};
    ASSERT_TRUE(ask());
    EXPECT_NE(addresses_, nullptr);
    EXPECT_EQ(count_, 0);
}

TEST_F(PlaylistRoutingTest, AUniverseHasTheZoneOfItsEntry) {
    effect().universes = {{7, 12}, {8, 13}};
    ASSERT_TRUE(ask());
    EXPECT_EQ(zone_, 12);
}

TEST_F(PlaylistRoutingTest, AUniverseWithoutAnEntryHasNoZone) {
    effect().universes = {{8, 13}, {-1, 14}};
    ASSERT_TRUE(ask());
    EXPECT_EQ(zone_, -1);
}

TEST(PlaylistAddressTest, TheBinaryFormIsKeptInHostByteOrder) {
    EXPECT_EQ(Playlist::Address("10.0.0.5", 6454).ipv4, 0x0A000005U);
}

TEST(PlaylistAddressTest, ATextThatIsNoAddressIsAllOnes) {
    EXPECT_EQ(Playlist::Address("nowhere", 6454).ipv4, 0xFFFFFFFFU);
    EXPECT_EQ(Playlist::Address("", 6454).ipv4, 0xFFFFFFFFU);
}

}  // namespace
