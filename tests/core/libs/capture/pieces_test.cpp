// The small pure pieces: clock, addresses, IPv4 packets, arrivals, advice.
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "artnet/forwarding_datagram.h"
#include "capture/arrival.h"
#include "capture/ip_packet.h"
#include "capture/receive_buffer.h"
#include "capture/stamp_clock.h"
#include "support/artnet_sender.h"

using namespace std::chrono_literals;

namespace {

using capture::Endpoint;
using capture::EndpointFilter;
using capture::StampClock;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(StampClockTest, StampsStayAsTheyAreWhileBothClocksRunTogether) {
    StampClock clock;
    clock.observe(1000s, 10s);
    clock.observe(1001s + 900us, 11s);
    clock.observe(1002s + 1800us, 12s);
    EXPECT_EQ(clock.steady(1002s + 17ns), 1002s + 17ns);
}

TEST(StampClockTest, AStepOfTheWallClockIsTakenOutOfLaterStamps) {
    StampClock clock;
    clock.observe(1000s, 10s);
    clock.observe(4601s, 11s);
    EXPECT_EQ(clock.steady(4601s + 5ns), 1001s + 5ns) << "an hour forward";
    clock.observe(1002s, 12s);
    EXPECT_EQ(clock.steady(1002s + 5ns), 1002s + 5ns) << "and back";
}

TEST(StampClockTest, TheSystemsOwnClocksAreReadInTheSameUnits) {
    StampClock clock;
    clock.look();
    const auto before = std::chrono::system_clock::now().time_since_epoch();
    EXPECT_GE(clock.now(), before);
}

TEST(EndpointTest, FilterTakesAnAddressWithOrWithoutAPort) {
    const Endpoint sender{0x0A000005, 6454};
    EXPECT_TRUE(EndpointFilter().passes(sender));
    EXPECT_TRUE(EndpointFilter("10.0.0.5").passes(sender));
    EXPECT_TRUE(EndpointFilter("10.0.0.5:6454").passes(sender));
    EXPECT_FALSE(EndpointFilter("10.0.0.5:6455").passes(sender));
    EXPECT_FALSE(EndpointFilter("10.0.0.6").passes(sender));
    for (const char* text :
         {"", "10.0.0", "10.0.0.5:", "10.0.0.5:0", "10.0.0.5:65536", "10.0.0.5:1x", "host"}) {
        EXPECT_THROW(EndpointFilter{text}, std::invalid_argument) << text;
    }
    EXPECT_EQ(capture::endpoint_text(sender), "10.0.0.5:6454");
}

/// From 10.0.0.1:258 to 10.0.0.2:772, with three bytes.
std::vector<unsigned char> ip_packet() {
    return {0x45, 0, 0, 31, 0, 0, 0x40, 0, 64, 17, 0, 0, 10, 0, 0, 1,
            10,   0, 0, 2,  1, 2, 3,    4, 0,  11, 0, 0, 7,  8, 9};
}

TEST(IpPacketTest, TheDatagramIsTakenOutAndPaddingBehindThePacketLeftOut) {
    std::vector<unsigned char> packet = ip_packet();
    packet.resize(60);
    const auto udp = capture::udp_in(packet);
    ASSERT_TRUE(udp);
    EXPECT_EQ(udp->sender, (Endpoint{0x0A000001, 258}));
    EXPECT_EQ(udp->receiver, (Endpoint{0x0A000002, 772}));
    EXPECT_THAT(udp->payload, ElementsAre(7, 8, 9));
}

TEST(IpPacketTest, OptionsInTheHeaderArePassedOver) {
    std::vector<unsigned char> packet = ip_packet();
    packet.insert(packet.begin() + 20, {1, 1, 1, 1});
    packet[0] = 0x46;
    packet[3] = 35;
    const auto udp = capture::udp_in(packet);
    ASSERT_TRUE(udp);
    EXPECT_THAT(udp->payload, ElementsAre(7, 8, 9));
}

TEST(IpPacketTest, WhatIsNoWholeDatagramIsRefused) {
    const auto refused = [](std::size_t at, unsigned char value) {
        std::vector<unsigned char> packet = ip_packet();
        packet[at] = value;
        return !capture::udp_in(packet);
    };
    EXPECT_TRUE(refused(0, 0x65)) << "version";
    EXPECT_TRUE(refused(0, 0x44)) << "short header";
    EXPECT_TRUE(refused(0, 0x4F)) << "header longer than the packet";
    EXPECT_TRUE(refused(3, 32)) << "longer than what was captured";
    EXPECT_TRUE(refused(3, 27)) << "no room for a UDP header";
    EXPECT_TRUE(refused(6, 0x20)) << "first fragment";
    EXPECT_TRUE(refused(7, 1)) << "later fragment";
    EXPECT_TRUE(refused(9, 6)) << "TCP";
    EXPECT_TRUE(refused(25, 12)) << "datagram longer than its packet";
    EXPECT_TRUE(refused(25, 7)) << "datagram shorter than its header";
    const std::vector<unsigned char> whole = ip_packet();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(capture::udp_in(std::span(whole).first(size))) << size;
    }
}

TEST(ArrivalTest, AWrappedPacketsPeerIsItsDestination) {
    std::vector<unsigned char> bytes(artnet::kForwardingHeaderSize);
    artnet::write_forwarding_header(std::span<unsigned char, artnet::kForwardingHeaderSize>(bytes), 1,
                                    "10.0.0.9", 6455);
    std::vector<std::uint8_t> packet = tests::dmx_packet(3, {1, 2});
    packet.resize(artnet::kForwardedPacketSize);
    bytes.insert(bytes.end(), packet.begin(), packet.end());
    const capture::Datagram datagram{7ns, {0x7F000001, 40000}, bytes};

    const capture::Arrival wrapped = capture::read_arrival(datagram, capture::Payload::Wrapped);
    EXPECT_EQ(wrapped.kind, artnet::PacketKind::Dmx);
    EXPECT_EQ(wrapped.peer, (Endpoint{0x0A000009, 6455}));
    EXPECT_EQ(wrapped.time, 7ns);
    EXPECT_THAT(wrapped.dmx.levels, ElementsAre(1, 2));

    EXPECT_EQ(capture::read_arrival(datagram, capture::Payload::Plain).kind, artnet::PacketKind::NotArtNet);
    bytes[4] = 'x';
    EXPECT_EQ(capture::read_arrival({7ns, {}, bytes}, capture::Payload::Wrapped).kind,
              artnet::PacketKind::NotArtNet);
}

TEST(ReceiveBufferTest, AdviceNamesTheLimitWhereABurstDoesNotFit) {
    EXPECT_THAT(capture::receive_buffer_advice(212992), HasSubstr("sysctl -w net.core.rmem_max="));
    EXPECT_THAT(capture::receive_buffer_advice(212992), HasSubstr("about 166 datagrams"));
    EXPECT_EQ(capture::receive_buffer_advice(8 * 1024 * 1024), "");
}

}  // namespace
