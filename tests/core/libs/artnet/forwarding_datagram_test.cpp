// The forwarding header byte for byte, and every reason to refuse a datagram.
#include "artnet/forwarding_datagram.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using artnet::ForwardingFault;
using artnet::ForwardingTarget;
using testing::ElementsAre;

using Header = std::array<unsigned char, artnet::kForwardingHeaderSize>;

Header header_for(std::uint16_t manufacturer, std::string_view ip, int port) {
    Header header;
    header.fill(0xEE);
    artnet::write_forwarding_header(header, manufacturer, ip, port);
    return header;
}

std::vector<unsigned char> datagram_for(std::string_view ip, int port) {
    const Header header = header_for(0, ip, port);
    std::vector<unsigned char> datagram(header.begin(), header.end());
    datagram.resize(artnet::kForwardingDatagramSize, 0);
    std::ranges::copy(std::string_view("Art-Net"), datagram.begin() + 24);
    return datagram;
}

ForwardingFault fault_of(const std::vector<unsigned char>& datagram) {
    ForwardingTarget target;
    return artnet::parse_forwarding_datagram(datagram, target);
}

TEST(ForwardingHeaderTest, ShortAddressIsPaddedWithNulAndThePortIsLittleEndian) {
    EXPECT_THAT(header_for(0, "10.0.0.5", 6454), ElementsAre(0, 0, 0, 0,                              //
                                                             '1', '0', '.', '0', '.', '0', '.', '5',  //
                                                             0, 0, 0, 0, 0, 0, 0, 0,                  //
                                                             0x36, 0x19, 0, 0));
}

TEST(ForwardingHeaderTest, LongestAddressFillsItsFieldButForOneNul) {
    EXPECT_THAT(header_for(0, "255.255.255.255", 1),
                ElementsAre(0, 0, 0, 0,                                                  //
                            '2', '5', '5', '.', '2', '5', '5', '.', '2', '5', '5', '.',  //
                            '2', '5', '5', 0,                                            //
                            1, 0, 0, 0));
}

TEST(ForwardingHeaderTest, ManufacturerCodeIsLittleEndianInFourBytes) {
    const Header header = header_for(0x7FF0, "1.2.3.4", 1);
    EXPECT_EQ(header[0], 0xF0);
    EXPECT_EQ(header[1], 0x7F);
    EXPECT_EQ(header[2], 0);
    EXPECT_EQ(header[3], 0);
}

TEST(ForwardingHeaderTest, OverlongTextIsCutAndThePortReplacesItsTail) {
    EXPECT_THAT(header_for(0, "abcdefghijklmnopqrstuvwxyz", 0x01020304),
                ElementsAre(0, 0, 0, 0,                                                       //
                            'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'm',  //
                            'n', 'o', 'p',                                                    //
                            0x04, 0x03, 0x02, 0x01));
}

TEST(ForwardingHeaderTest, TextEndsAtItsFirstNul) {
    EXPECT_EQ(header_for(0, std::string_view("1.2.3.4\0tail", 12), 9), header_for(0, "1.2.3.4", 9));
}

TEST(ForwardingHeaderTest, PortOutsideSixteenBitsStandsInFull) {
    EXPECT_EQ(header_for(0, "1.2.3.4", 70000)[22], 1);
    EXPECT_EQ(header_for(0, "1.2.3.4", -1)[23], 0xFF);
}

TEST(ForwardingParseTest, WrittenHeaderIsReadBack) {
    ForwardingTarget target;
    EXPECT_EQ(artnet::parse_forwarding_datagram(datagram_for("10.0.0.5", 6454), target),
              ForwardingFault::None);
    EXPECT_EQ(target, (ForwardingTarget{0x0A000005, 6454}));
}

TEST(ForwardingParseTest, SizeMustBeExact) {
    std::vector<unsigned char> datagram = datagram_for("10.0.0.5", 6454);
    datagram.push_back(0);
    EXPECT_EQ(fault_of(datagram), ForwardingFault::Size);
    datagram.resize(artnet::kForwardingDatagramSize - 1);
    EXPECT_EQ(fault_of(datagram), ForwardingFault::Size);
    EXPECT_EQ(fault_of({}), ForwardingFault::Size);
}

TEST(ForwardingParseTest, AddressMustEndWithinItsField) {
    EXPECT_EQ(fault_of(datagram_for("255.255.255.2555", 6454)), ForwardingFault::UnterminatedAddress);
}

TEST(ForwardingParseTest, AddressMustBeDottedDecimal) {
    for (const char* text :
         {"", "10.0.0", "10.0.0.256", "node", "10.0.0.5 ", "::1", "0x7f.0.0.1", "167772165"}) {
        EXPECT_EQ(fault_of(datagram_for(text, 6454)), ForwardingFault::InvalidAddress) << text;
    }
}

TEST(ForwardingParseTest, PortMustBeOneToSixteenBits) {
    for (const int port : {0, -1, 65536, 0x7FFFFFFF}) {
        EXPECT_EQ(fault_of(datagram_for("10.0.0.5", port)), ForwardingFault::Port) << port;
    }
    EXPECT_EQ(fault_of(datagram_for("10.0.0.5", 1)), ForwardingFault::None);
    EXPECT_EQ(fault_of(datagram_for("10.0.0.5", 65535)), ForwardingFault::None);
}

TEST(ForwardingParseTest, PacketMustBeginWithTheArtNetIdentifierAndItsNul) {
    std::vector<unsigned char> datagram = datagram_for("10.0.0.5", 6454);
    datagram[31] = 1;
    EXPECT_EQ(fault_of(datagram), ForwardingFault::Identifier);
    datagram[31] = 0;
    datagram[24] = 'a';
    EXPECT_EQ(fault_of(datagram), ForwardingFault::Identifier);
}

TEST(ForwardingParseTest, DatagramWithABadHeaderLeavesTheTargetAlone) {
    for (const auto& datagram : {datagram_for("10.0.0", 6454), datagram_for("10.0.0.5", 0),
                                 datagram_for("255.255.255.2555", 6454), std::vector<unsigned char>(553)}) {
        ForwardingTarget target{1, 2};
        EXPECT_NE(artnet::parse_forwarding_datagram(datagram, target), ForwardingFault::None);
        EXPECT_EQ(target, (ForwardingTarget{1, 2}));
    }
}

TEST(ForwardingParseTest, TargetOfAGoodHeaderIsKnownWhateverItHeads) {
    ForwardingTarget target;
    std::vector<unsigned char> datagram = datagram_for("10.0.0.5", 6454);
    datagram[24] = 'a';
    EXPECT_EQ(artnet::parse_forwarding_datagram(datagram, target), ForwardingFault::Identifier);
    EXPECT_EQ(target, (ForwardingTarget{0x0A000005, 6454}));
}

}  // namespace
