// Where a packet goes: destinations of its own, the broadcast address, the known nodes, nowhere.

#include <cerrno>

#include "support/engine_test.h"
#include "support/playlist_access.h"

using namespace std::chrono_literals;

namespace {

using Destinations = std::vector<std::string>;

class RepeaterRoutingTest : public EngineTest {
protected:
    RepeaterRoutingTest() { start(); }

    /// Three packets of one channel on universe 5, once.
    void play(const ShowEffect& effect, const std::vector<int>& levels = {1, 2, 3}) {
        Recording recording;
        for (const int level : levels) {
            recording.dmx(5, {static_cast<std::uint8_t>(level), 77}).frame_delay(20ms);
        }
        show.recording("a.rec", recording.bytes());
        show.playlist(ShowPlaylist(1).loop(false).effect(effect));
        ASSERT_TRUE(engine().play_playlist(1));
        ASSERT_TRUE(eventually([this] { return flags(1) == "1,0,1"; }));
    }
    void tell_nodes(const char* message) {
        RepeaterAccess::update_artnet_node_map(engine(), QString::fromLatin1(message));
    }
    [[nodiscard]] static Destinations destinations() {
        Destinations result;
        for (const SentDatagram& sent : FakeUdpSocket::sent()) {
            result.push_back(sent.destination());
        }
        return result;
    }
    [[nodiscard]] std::size_t failures() const {
        return log().lines_starting("[Repeater::do_render_work] Can't send packet").size();
    }
};

TEST_F(RepeaterRoutingTest, EachDestinationOfTheUniverseGetsThePacketInOrder) {
    tell_nodes("1:5:192.0.2.50:6454");
    play(ShowEffect("a.rec").output("5:192.0.2.9:6454").output("5:192.0.2.1:7000").output("*:192.0.2.3:6454"),
         {1});
    EXPECT_EQ(destinations(), (Destinations{"192.0.2.9:6454", "192.0.2.1:7000"}));
    const std::vector<SentDatagram> sent = FakeUdpSocket::sent();
    EXPECT_EQ(sent[0].channel(0), 1);
    EXPECT_EQ(sent[1].channel(0), 1);
    EXPECT_EQ(sent[1].port, 7000);
}

TEST_F(RepeaterRoutingTest, ADestinationListedTwiceGetsThePacketTwice) {
    play(ShowEffect("a.rec").output("5:192.0.2.9:6454").output("5:192.0.2.9:6454"), {1});
    EXPECT_EQ(destinations(), (Destinations{"192.0.2.9:6454", "192.0.2.9:6454"}));
}

TEST_F(RepeaterRoutingTest, OtherUniversesGoToTheDestinationsOfAll) {
    play(ShowEffect("a.rec").output("4:192.0.2.9:6454").output("*:192.0.2.3:6454"), {1});
    EXPECT_EQ(destinations(), (Destinations{"192.0.2.3:6454"}));
}

TEST_F(RepeaterRoutingTest, TheFirstFailureEndsThePacketsRemainingDestinationsAndTheNextPacketTriesAll) {
    FakeUdpSocket::set_verdict([](const SentDatagram& datagram) {
        return datagram.channel(0) == 1 && datagram.destination() == "192.0.2.2:6454" ? ENETUNREACH : 0;
    });
    capture(6);
    play(ShowEffect("a.rec").output("5:192.0.2.1:6454").output("5:192.0.2.2:6454").output("5:192.0.2.3:6454"),
         {1, 2});
    EXPECT_EQ(destinations(),
              (Destinations{"192.0.2.1:6454", "192.0.2.1:6454", "192.0.2.2:6454", "192.0.2.3:6454"}));
    EXPECT_EQ(FakeUdpSocket::attempts(), 5U);
    EXPECT_EQ(failures(), 1U);
}

TEST_F(RepeaterRoutingTest, WithUnicastOffAPacketWithoutDestinationsIsBroadcast) {
    engine().set_unicast_enabled(false);
    tell_nodes("1:5:192.0.2.50:6454");
    play(ShowEffect("a.rec"), {1});
    EXPECT_EQ(destinations(), (Destinations{"192.0.2.255:6454"}));
}

TEST_F(RepeaterRoutingTest, ExplicitDestinationsAreUsedWithUnicastOffToo) {
    engine().set_unicast_enabled(false);
    play(ShowEffect("a.rec").output("5:192.0.2.1:6454"), {1});
    EXPECT_EQ(destinations(), (Destinations{"192.0.2.1:6454"}));
}

TEST_F(RepeaterRoutingTest, SwitchingUnicastCountsFromTheNextPacket) {
    tell_nodes("1:5:192.0.2.50:6454");
    show.recording("a.rec", Recording{}.dmx(5, {1}).bytes());
    show.playlist(ShowPlaylist(1).effect(ShowEffect("a.rec")));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(2));
    engine().set_unicast_enabled(false);
    const std::size_t first = FakeUdpSocket::sent_count();
    ASSERT_TRUE(wait_for_sent(first + 2));
    engine().set_unicast_enabled(true);
    const std::size_t second = FakeUdpSocket::sent_count();
    ASSERT_TRUE(wait_for_sent(second + 2));
    const Destinations all = destinations();
    EXPECT_EQ(all.at(0), "192.0.2.50:6454");
    EXPECT_EQ(all.at(first + 1), "192.0.2.255:6454");
    EXPECT_EQ(all.at(second + 1), "192.0.2.50:6454");
}

TEST_F(RepeaterRoutingTest, ANodeMapThatComesDuringTheWaitForAPacketCountsForThatPacket) {
    tell_nodes("1:5:192.0.2.50:6454");
    show.recording("a.rec", Recording{}.dmx(5, {1}).frame_delay(40ms).dmx(5, {2}).bytes());
    show.playlist(ShowPlaylist(1).effect(ShowEffect("a.rec")));
    VirtualClock::set_step(0ns);
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(1));
    ASSERT_TRUE(worker_is_waiting());
    tell_nodes("0:5:192.0.2.50:6454;1:5:192.0.2.60:6454");
    VirtualClock::advance(40ms);
    ASSERT_TRUE(wait_for_sent(2));
    EXPECT_EQ(destinations(), (Destinations{"192.0.2.50:6454", "192.0.2.60:6454"}));
}

TEST_F(RepeaterRoutingTest, EachNodeOfTheUniverseGetsThePacketInTheOrderOfTheMap) {
    tell_nodes("1:5:192.0.2.9:6454;1:5:192.0.2.10:6454;1:5:192.0.2.9:7000;1:6:192.0.2.77:6454");
    play(ShowEffect("a.rec"), {1});
    EXPECT_EQ(destinations(), (Destinations{"192.0.2.10:6454", "192.0.2.9:6454", "192.0.2.9:7000"}));
}

TEST_F(RepeaterRoutingTest, ANodeAnnouncedTwiceGetsThePacketOnce) {
    tell_nodes("1:5:192.0.2.9:6454;1:5:192.0.2.8:6454;1:5:192.0.2.9:6454;1:5:192.0.2.9:6454");
    play(ShowEffect("a.rec"), {1});
    EXPECT_EQ(destinations(), (Destinations{"192.0.2.8:6454", "192.0.2.9:6454"}));
}

TEST_F(RepeaterRoutingTest, AFailureEndsThePacketsRemainingNodes) {
    tell_nodes("1:5:192.0.2.1:6454;1:5:192.0.2.2:6454;1:5:192.0.2.3:6454");
    FakeUdpSocket::set_verdict(
        [](const SentDatagram& datagram) { return datagram.destination() == "192.0.2.2:6454" ? EAGAIN : 0; });
    capture(6);
    play(ShowEffect("a.rec"), {1});
    EXPECT_EQ(destinations(), (Destinations{"192.0.2.1:6454"}));
    EXPECT_EQ(FakeUdpSocket::attempts(), 2U);
    EXPECT_EQ(failures(), 1U);
}

TEST_F(RepeaterRoutingTest, WithoutAKnownNodeNothingIsSentAndEveryPacketShowsAsFailed) {
    capture(6);
    play(ShowEffect("a.rec"));
    EXPECT_EQ(FakeUdpSocket::attempts(), 0U);
    EXPECT_EQ(failures(), 3U);
    EXPECT_EQ(log()
                  .lines_starting("[Repeater::do_render_work] Can't send packet (playlist_id:1, packet:2, "
                                  "universe:5) due to '")
                  .size(),
              1U);
    // The map has an entry for every universe asked for.
    const ondra::ArtnetNodeMap nodes = RepeaterAccess::node_map(engine());
    ASSERT_EQ(nodes.count(5), 1U);
    EXPECT_TRUE(nodes.at(5).empty());
}

TEST_F(RepeaterRoutingTest, ANodeMapUpdateCountsFromTheNextSend) {
    show.recording("a.rec", Recording{}.dmx(5, {1}).bytes());
    show.playlist(ShowPlaylist(1).effect(ShowEffect("a.rec")));
    tell_nodes("1:5:192.0.2.1:6454");
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(2));
    tell_nodes("0:5:192.0.2.1:6454;1:5:192.0.2.2:6454");
    const std::size_t sent = FakeUdpSocket::sent_count();
    ASSERT_TRUE(wait_for_sent(sent + 2));
    EXPECT_EQ(destinations().at(0), "192.0.2.1:6454");
    EXPECT_EQ(destinations().at(sent + 1), "192.0.2.2:6454");
}

TEST_F(RepeaterRoutingTest, AnUpdateReplacesTheWorkersWholeMap) {
    capture(6);
    play(ShowEffect("a.rec"), {1});
    ASSERT_EQ(RepeaterAccess::node_map(engine()).count(5), 1U);
    engine().stop();
    tell_nodes("1:6:192.0.2.1:6454");
    show.recording("b.rec", Recording{}.dmx(6, {1}).bytes());
    show.playlist(ShowPlaylist(2).effect(ShowEffect("b.rec")));
    ASSERT_TRUE(engine().play_playlist(2));
    ASSERT_TRUE(wait_for_sent(1));
    EXPECT_EQ(RepeaterAccess::node_map(engine()).count(5), 0U);
}

TEST_F(RepeaterRoutingTest, NodesAreNotCheckedAndPortsStandInFull) {
    tell_nodes("1:5:some node far away, by name:70000");
    play(ShowEffect("a.rec"), {1});
    ASSERT_EQ(FakeUdpSocket::sent_count(), 1U);
    const SentDatagram sent = FakeUdpSocket::sent().front();
    EXPECT_EQ(sent.port, 70000);
    // Sixteen characters of the text, then 70000 = 0x00011170.
    EXPECT_EQ(std::string(sent.bytes.begin() + 4, sent.bytes.begin() + 20), "some node far aw");
    EXPECT_EQ(std::vector<unsigned char>(sent.bytes.begin() + 20, sent.bytes.begin() + 24),
              (std::vector<unsigned char>{0x70, 0x11, 0x01, 0x00}));
}

TEST_F(RepeaterRoutingTest, AMutedUniverseSendsNothingAndDoesNotFail) {
    capture(6);
    play(ShowEffect("a.rec").output("5:192.0.2.1:6454").zone(5, -2));
    EXPECT_EQ(FakeUdpSocket::attempts(), 0U);
    EXPECT_EQ(failures(), 0U);
    EXPECT_EQ(log().lines_starting("[Repeater::send_packet] Send packet").size(), 3U);
}

TEST_F(RepeaterRoutingTest, AUniverseOfAnUnknownZoneSendsItsHeaderOnly) {
    play(ShowEffect("a.rec").output("5:192.0.2.1:6454").zone(5, 33), {9});
    ASSERT_EQ(FakeUdpSocket::sent_count(), 1U);
    EXPECT_EQ(last_sent(5).length(), 2);
    EXPECT_EQ(last_sent(5).channel(0), 0);
    EXPECT_EQ(last_sent(5).channel(1), 0);
}

TEST_F(RepeaterRoutingTest, AZoneWithoutDestinationsHasOneFrameForAllNodesAndTheBroadcast) {
    ASSERT_TRUE(engine().add_zone({3, 5, {0}}));
    tell_nodes("1:5:192.0.2.1:6454;1:5:192.0.2.2:6454");
    play(ShowEffect("a.rec").zone(5, 3), {9});
    EXPECT_EQ(RepeaterAccess::merge_packet_count(engine()), 1U);
    const MergePacket& frame = RepeaterAccess::get_merge_packet(engine(), 5, nullptr);
    EXPECT_EQ(frame.zones, (std::vector<int>{3}));
    EXPECT_EQ(frame.packet[18], 9);
    ASSERT_EQ(FakeUdpSocket::sent_count(), 2U);
    for (const SentDatagram& sent : FakeUdpSocket::sent()) {
        EXPECT_EQ(sent.channel(0), 9);
        EXPECT_EQ(sent.channel(1), 0);
    }
}

TEST_F(RepeaterRoutingTest, BroadcastUsesTheFrameWithoutADestination) {
    ASSERT_TRUE(engine().add_zone({3, 5, {0}}));
    engine().set_unicast_enabled(false);
    play(ShowEffect("a.rec").zone(5, 3), {9});
    EXPECT_EQ(RepeaterAccess::get_merge_packet(engine(), 5, nullptr).packet[18], 9);
    EXPECT_EQ(last_sent(5).channel(0), 9);
    EXPECT_EQ(last_sent(5).channel(1), 0);
}

TEST_F(RepeaterRoutingTest, EachDestinationHasAFrameOfItsOwn) {
    ASSERT_TRUE(engine().add_zone({3, 5, {0}}));
    play(ShowEffect("a.rec").output("5:192.0.2.1:6454").output("5:192.0.2.2:6454").zone(5, 3), {9});
    EXPECT_EQ(RepeaterAccess::merge_packet_count(engine()), 2U);
    const Playlist::Address second("192.0.2.2", 6454);
    EXPECT_EQ(RepeaterAccess::get_merge_packet(engine(), 5, &second).packet[18], 9);
}

/// Packets given to send_packet() directly: what no description file can bring about.
class RepeaterSendPacketTest : public RepeaterRoutingTest {
protected:
    RepeaterSendPacketTest() {
        PlaylistAccess::effects(playlist_).resize(1);
        PlaylistAccess::set_progress(playlist_, {0}, 1);
        packet_.universe = 5;
        packet_.data.assign(19, 1);
        playlist_.add_packet(packet_);
    }
    Playlist::Effect& effect() { return PlaylistAccess::effects(playlist_).front(); }
    bool send(int index = 0) { return RepeaterAccess::send_packet(engine(), playlist_, index, packet_); }

    Playlist playlist_;
    Playlist::Packet packet_;
};

TEST_F(RepeaterSendPacketTest, AnEmptyDestinationListIsAFailureAndSendsNothing) {
    effect().outputs[5] = {};
    engine().set_unicast_enabled(false);
    EXPECT_FALSE(send());
    EXPECT_EQ(FakeUdpSocket::attempts(), 0U);
}

TEST_F(RepeaterSendPacketTest, APacketOfNoEffectIsAFailureAndSendsNothing) {
    engine().set_unicast_enabled(false);
    ASSERT_TRUE(send());
    playlist_.add_packet(packet_);
    EXPECT_FALSE(send(1));
    EXPECT_EQ(FakeUdpSocket::attempts(), 1U);
}

TEST_F(RepeaterSendPacketTest, NineteenBytesAreTheSmallestPacketSent) {
    engine().set_unicast_enabled(false);
    EXPECT_TRUE(send());
    packet_.data.resize(18);
    EXPECT_FALSE(send());
    packet_.data.clear();
    EXPECT_FALSE(send());
    EXPECT_EQ(FakeUdpSocket::attempts(), 1U);
}

TEST_F(RepeaterSendPacketTest, AFailedBroadcastIsAFailure) {
    engine().set_unicast_enabled(false);
    FakeUdpSocket::set_verdict([](const SentDatagram&) { return EAGAIN; });
    EXPECT_FALSE(send());
}

}  // namespace
