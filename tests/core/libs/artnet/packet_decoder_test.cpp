// Datagrams from the network: good ones, and every way in which one may lie about itself.
#include "artnet/packet_decoder.h"

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "artnet/opcodes.h"
#include "support/artnet_sender.h"

namespace {

using artnet::decode_packet;
using artnet::DmxPacket;
using artnet::PacketKind;
using testing::ElementsAre;

PacketKind kind_of(const std::vector<std::uint8_t>& bytes) {
    DmxPacket dmx;
    return decode_packet(bytes, dmx);
}

/// An ArtDmx packet that holds `held` channels and says that it has `length`.
std::vector<std::uint8_t> claiming(std::size_t held, unsigned length) {
    std::vector<std::uint8_t> bytes = tests::dmx_packet(1, std::vector<std::uint8_t>(held, 7));
    bytes[16] = static_cast<std::uint8_t>(length >> 8);
    bytes[17] = static_cast<std::uint8_t>(length);
    return bytes;
}

TEST(PacketDecoderTest, DmxIsTakenApartAndWhatFollowsItIsLeftOut) {
    std::vector<std::uint8_t> bytes = tests::dmx_packet(0x1234, {1, 2, 3}, 200);
    bytes.push_back(99);
    DmxPacket dmx;
    ASSERT_EQ(decode_packet(bytes, dmx), PacketKind::Dmx);
    EXPECT_EQ(dmx.universe, 0x1234);
    EXPECT_EQ(dmx.sequence, 200);
    EXPECT_THAT(dmx.levels, ElementsAre(1, 2, 3)) << "an odd Length is taken";
    EXPECT_EQ(dmx.bytes.size(), 21U);
    EXPECT_EQ(dmx.bytes.data(), bytes.data());
}

TEST(PacketDecoderTest, LengthIsReadHighByteFirstAndHeldAgainstTheDatagram) {
    EXPECT_EQ(kind_of(claiming(512, 512)), PacketKind::Dmx);
    EXPECT_EQ(kind_of(claiming(1, 1)), PacketKind::Dmx);
    EXPECT_EQ(kind_of(claiming(512, 513)), PacketKind::Malformed);
    EXPECT_EQ(kind_of(claiming(512, 0)), PacketKind::Malformed);
    EXPECT_EQ(kind_of(claiming(10, 11)), PacketKind::Malformed);
    EXPECT_EQ(kind_of(claiming(10, 0x0200)), PacketKind::Malformed);
    std::vector<std::uint8_t> cut = tests::dmx_packet(1, {});
    cut.resize(17);
    EXPECT_EQ(kind_of(cut), PacketKind::Malformed);
}

TEST(PacketDecoderTest, OtherTypesAreToldApartByTheirOpcode) {
    EXPECT_EQ(kind_of(tests::sync_packet()), PacketKind::Sync);
    std::vector<std::uint8_t> other = tests::sync_packet();
    other[8] = opcode::kPoll & 0xFF;
    other[9] = opcode::kPoll >> 8;
    EXPECT_EQ(kind_of(other), PacketKind::Other);
    EXPECT_EQ(artnet::opcode_of(other), opcode::kPoll);
    EXPECT_EQ(artnet::opcode_of({}), std::nullopt);
}

TEST(PacketDecoderTest, GarbageIsNoArtNet) {
    EXPECT_EQ(kind_of({}), PacketKind::NotArtNet);
    EXPECT_EQ(kind_of({'A', 'r', 't', '-', 'N', 'e', 't', 0, 0}), PacketKind::NotArtNet) << "no whole opcode";
    EXPECT_EQ(kind_of({'A', 'r', 't', '-', 'N', 'e', 't', '!', 0, 0x50, 0, 14, 0, 0, 0, 0, 0, 2, 1, 1}),
              PacketKind::NotArtNet);
}

}  // namespace
