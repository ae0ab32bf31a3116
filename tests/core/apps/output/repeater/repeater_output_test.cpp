// The one exit of every frame: the datagram for the local forwarder.

#include <algorithm>
#include <cerrno>

#include "support/engine_test.h"

namespace {

using Bytes = std::vector<unsigned char>;

class RepeaterOutputTest : public EngineTest {
protected:
    RepeaterOutputTest() {
        start();
        for (std::size_t index = 0; index < packet_.size(); ++index) {
            packet_[index] = static_cast<unsigned char>(index % 251 + 1);
        }
    }
    bool send(const char* ip, int port) {
        return RepeaterAccess::send_to_address(engine(), packet_, Playlist::Address(ip, port));
    }
    /// Bytes `from` to `to` - 1 of the last datagram.
    [[nodiscard]] static Bytes last(int from, int to) {
        const Bytes bytes = FakeUdpSocket::sent().back().bytes;
        return {bytes.begin() + from, bytes.begin() + to};
    }
    [[nodiscard]] static std::string last_text(int from, int to) {
        const Bytes bytes = last(from, to);
        return {bytes.begin(), bytes.end()};
    }
    std::array<unsigned char, kDmxPacketSize> packet_{};
};

TEST_F(RepeaterOutputTest, AFrameGoesToTheForwarderOnThisHostAtTheDestinationsPort) {
    ASSERT_TRUE(send("10.0.0.5", 6454));
    const SentDatagram sent = FakeUdpSocket::sent().back();
    EXPECT_EQ(sent.ip, "127.0.0.1");
    EXPECT_EQ(sent.port, 6454);
    EXPECT_EQ(sent.bytes.size(), 554U);
}

TEST_F(RepeaterOutputTest, TheHeaderNamesMakerAddressAndPort) {
    ASSERT_TRUE(send("10.0.0.5", 6454));
    EXPECT_EQ(last(0, 4), (Bytes{0x34, 0x12, 0, 0}));
    EXPECT_EQ(last_text(4, 20), std::string("10.0.0.5\0\0\0\0\0\0\0\0", 16));
    EXPECT_EQ(last(20, 24), (Bytes{0x36, 0x19, 0, 0}));
}

TEST_F(RepeaterOutputTest, ThePacketFollowsUnchanged) {
    ASSERT_TRUE(send("10.0.0.5", 6454));
    EXPECT_EQ(last(24, 554), Bytes(packet_.begin(), packet_.end()));
}

TEST_F(RepeaterOutputTest, TheLongestAddressFitsWithItsTerminator) {
    ASSERT_TRUE(send("255.255.255.255", 6454));
    EXPECT_EQ(last_text(4, 20), std::string("255.255.255.255\0", 16));
}

TEST_F(RepeaterOutputTest, AShorterAddressLeavesNothingOfTheOneBefore) {
    ASSERT_TRUE(send("255.255.255.255", 6454));
    ASSERT_TRUE(send("1.2.3.4", 6454));
    EXPECT_EQ(last_text(4, 20), std::string("1.2.3.4\0\0\0\0\0\0\0\0\0", 16));
}

TEST_F(RepeaterOutputTest, AMakerCodeOfZeroIsFourZeroBytes) {
    FakeDevice::set_manufacturer_id(0);
    ASSERT_TRUE(send("10.0.0.5", 6454));
    EXPECT_EQ(last(0, 4), (Bytes{0, 0, 0, 0}));
}

TEST_F(RepeaterOutputTest, TheWholeMakerCodeIsWritten) {
    FakeDevice::set_manufacturer_id(0xFFFE);
    ASSERT_TRUE(send("10.0.0.5", 6454));
    EXPECT_EQ(last(0, 4), (Bytes{0xFE, 0xFF, 0, 0}));
}

TEST_F(RepeaterOutputTest, PortsAreWrittenAsSigned32BitNumbers) {
    ASSERT_TRUE(send("10.0.0.5", 65535));
    EXPECT_EQ(last(20, 24), (Bytes{0xFF, 0xFF, 0, 0}));
    ASSERT_TRUE(send("10.0.0.5", -2));
    EXPECT_EQ(last(20, 24), (Bytes{0xFE, 0xFF, 0xFF, 0xFF}));
}

TEST_F(RepeaterOutputTest, ATextTooLongForItsFieldDoesNotReachPortOrPacket) {
    ASSERT_TRUE(send("abcdefghijklmnopqrstuvwxyz", 6454));
    EXPECT_EQ(last_text(4, 20), "abcdefghijklmnop");
    EXPECT_EQ(last(20, 24), (Bytes{0x36, 0x19, 0, 0}));
    EXPECT_EQ(last(24, 554), Bytes(packet_.begin(), packet_.end()));
}

TEST_F(RepeaterOutputTest, AFailedSendIsReportedAndLeavesNothingBehind) {
    FakeUdpSocket::set_verdict([](const SentDatagram&) { return EAGAIN; });
    EXPECT_FALSE(send("10.0.0.5", 6454));
    EXPECT_EQ(FakeUdpSocket::attempts(), 1U);
    FakeUdpSocket::set_verdict(nullptr);
    EXPECT_TRUE(send("192.0.2.1", 7000));
    EXPECT_EQ(FakeUdpSocket::sent_count(), 1U);
    EXPECT_EQ(FakeUdpSocket::sent().back().destination(), "192.0.2.1:7000");
}

TEST_F(RepeaterOutputTest, EverySendIsTracedWithSizeAddressAndProxy) {
    capture(6);
    ASSERT_TRUE(send("10.0.0.5", 6454));
    EXPECT_EQ(log().lines(), (std::vector<std::string>{"[Repeater::send_to_address] Send packet (bytes:530, "
                                                       "address:(10.0.0.5:6454)), proxy: 127.0.0.1"}));
}

TEST_F(RepeaterOutputTest, AFailedSendSaysNothingOfItsOwn) {
    FakeUdpSocket::set_verdict([](const SentDatagram&) { return EAGAIN; });
    capture(5);
    EXPECT_FALSE(send("10.0.0.5", 6454));
    EXPECT_TRUE(log().lines().empty());
}

TEST_F(RepeaterOutputTest, AFrameOfFewChannelsIsSentWhole) {
    show.recording("a.rec", Recording{}.dmx(5, {9}).bytes());
    show.playlist(ShowPlaylist(1).effect(ShowEffect("a.rec").output("5:192.0.2.1:6454")));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(1));
    EXPECT_EQ(last(24, 44),
              (Bytes{'A', 'r', 't', '-', 'N', 'e', 't', 0, 0x00, 0x50, 0, 14, 0, 0, 5, 0, 0, 1, 9, 0}));
    EXPECT_EQ(last(44, 554), Bytes(510, 0));
}

}  // namespace
