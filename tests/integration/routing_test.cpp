// Where frames go: the forwarding datagram's bytes, explicit destinations, discovered nodes.

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <QDBusConnectionInterface>

#include "service_test.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

using Texts = std::vector<std::string>;

/// "1:UNIVERSE:IP:PORT", the record of a node that is there.
std::string node(int universe, const std::string& ip, int port) {
    return "1:" + std::to_string(universe) + ":" + ip + ":" + std::to_string(port);
}

class RoutingTest : public ServiceTest {
protected:
    /// The destinations of the next frames.
    Texts next_destinations(int count) {
        Texts result;
        for (const Frame& frame : wire_.next(count)) {
            result.push_back(frame.ip());
        }
        return result;
    }

    /// Plays playlist 1 and waits until a frame goes to the node, which was announced last.
    void play_until(const std::string& ip) {
        EXPECT_TRUE(controller().play(1));
        wait_for_node(ip);
    }

    void wait_for_node(const std::string& ip) {
        wire_.next_where([&ip](const Frame& frame) { return frame.ip() == ip; });
    }

    ForwarderSocket wire_;
    static constexpr std::chrono::milliseconds kFrame{2};
};

}  // namespace

TEST_F(RoutingTest, TheDatagramIsTheHeaderAndThePacketByteForByte) {
    add_playlist(1, false, Recording{}.dmx(0x1234, {255, 7, 0, 9}), {wire_.output("4660", "10.0.0.5")});
    start();
    EXPECT_TRUE(controller().play(1));
    std::vector<std::uint8_t> expected = {// Manufacturer: the code for prototypes.
                                          0xF0, 0x7F, 0, 0,
                                          // Address.
                                          '1', '0', '.', '0', '.', '0', '.', '5', 0, 0, 0, 0, 0, 0, 0, 0};
    for (const int shift : {0, 8, 16, 24}) {
        expected.push_back(static_cast<std::uint8_t>(wire_.port() >> shift));
    }
    for (const int byte : {int{'A'}, int{'r'}, int{'t'}, int{'-'}, int{'N'}, int{'e'}, int{'t'}, 0,
                           // Opcode, version, sequence, physical, universe, length.
                           0x00, 0x50, 0, 14, 0, 0, 0x34, 0x12, 0, 4,
                           // Channels, of which all but four are empty.
                           255, 7, 0, 9}) {
        expected.push_back(static_cast<std::uint8_t>(byte));
    }
    expected.resize(554);
    EXPECT_EQ(wire_.next().bytes, expected);
}

TEST_F(RoutingTest, APacketThatUsesAllChannelsArrivesWhole) {
    std::vector<std::uint8_t> levels(512);
    for (std::size_t i = 0; i < levels.size(); ++i) {
        levels[i] = static_cast<std::uint8_t>(i * 7);
    }
    add_playlist(1, false, Recording{}.dmx(1, levels), {wire_.output("1", "255.255.255.255")});
    start();
    EXPECT_TRUE(controller().play(1));
    const Frame frame = wire_.next();
    EXPECT_EQ(frame.length(), 512);
    EXPECT_TRUE(std::equal(levels.begin(), levels.end(), frame.bytes.begin() + 42));
    // The longest address fits with one NUL.
    EXPECT_EQ(frame.ip(), "255.255.255.255");
    EXPECT_EQ(frame.bytes[19], 0);
    EXPECT_EQ(frame.port(), wire_.port());
}

TEST_F(RoutingTest, AUniverseUsesItsOwnDestinationsInsteadOfThoseForAll) {
    add_playlist(
        1, false, Recording{}.dmx(1, {1}).dmx(2, {2}),
        {wire_.output("*", "10.0.0.1"), wire_.output("2", "10.0.0.3"), wire_.output("2", "10.0.0.2")});
    start();
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(next_destinations(3), (Texts{"10.0.0.1", "10.0.0.3", "10.0.0.2"}));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    EXPECT_THAT(wire_.arrived(), IsEmpty());
}

TEST_F(RoutingTest, WithoutKnownNodesNothingIsSentAndTheFailureIsTraced) {
    add_playlist(1, true, Recording{}.dmx(5, {1}).frame_delay(kFrame), {});
    start();
    Discovery discovery(bus().address());
    controller().set_log_level(6);
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(wait_until([this] {
        const Texts lines = log_since_mark();
        return std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
            return line.starts_with(
                "info [Repeater::do_render_work] Can't send packet (playlist_id:1, packet:0, universe:5)");
        });
    }));
    for (const std::string& line : log_since_mark()) {
        EXPECT_THAT(line, testing::Not(StartsWith("info [Repeater::send_to_address]")));
    }
    EXPECT_THAT(wire_.arrived(), IsEmpty());
    // The first node that is announced gets the frames that come from then on.
    discovery.announce(node(5, "10.0.0.9", wire_.port()));
    EXPECT_EQ(next_destinations(3), (Texts{"10.0.0.9", "10.0.0.9", "10.0.0.9"}));
}

TEST_F(RoutingTest, WhatAnotherThanTheDiscoveryServiceAnnouncesIsIgnored) {
    add_playlist(1, true, Recording{}.dmx(5, {1}).frame_delay(kFrame), {});
    start();
    BusConnection other(bus().address());
    const auto announce_as_other = [this, &other](const char* ip) {
        QDBusMessage signal =
            QDBusMessage::createSignal(QStringLiteral("/"), QStringLiteral("com.torvexserver.Netsurvey.Dump"),
                                       QStringLiteral("OnArtnetNodesUpdated"));
        signal << QString::fromStdString(node(5, ip, wire_.port()));
        EXPECT_TRUE(other.bus().send(signal));
        // Once the bus has answered, it has passed the signal on, before all that others send from now on.
        EXPECT_TRUE(
            other.bus().interface()->isServiceRegistered(QStringLiteral("com.torvexserver.Cuewright")));
    };
    announce_as_other("10.0.0.1");
    Discovery discovery(bus().address());
    announce_as_other("10.0.0.2");
    discovery.announce(node(5, "10.0.0.9", wire_.port()));
    play_until("10.0.0.9");
    EXPECT_EQ(next_destinations(4), (Texts{"10.0.0.9", "10.0.0.9", "10.0.0.9", "10.0.0.9"}));
}

TEST_F(RoutingTest, NodesGetTheFramesOfTheirUniverseInTheOrderOfTheirText) {
    add_playlist(1, true, Recording{}.dmx(5, {1}).dmx(6, {1}).frame_delay(kFrame), {});
    start();
    Discovery discovery(bus().address());
    discovery.announce(node(5, "10.0.0.9", wire_.port()) + ";" + node(5, "10.0.0.10", wire_.port()) + ";" +
                       node(6, "10.0.0.7", wire_.port()) + ";" + node(7, "10.0.0.8", wire_.port()));
    play_until("10.0.0.7");
    EXPECT_EQ(next_destinations(6),
              (Texts{"10.0.0.10", "10.0.0.9", "10.0.0.7", "10.0.0.10", "10.0.0.9", "10.0.0.7"}));
    const Frame frame = wire_.next();
    EXPECT_EQ(frame.universe(), 5);
    EXPECT_EQ(frame.port(), wire_.port());
}

TEST_F(RoutingTest, ANodeAnnouncedTwiceGetsEachFrameOnceAndStaysAfterOneRemoval) {
    add_playlist(1, true, Recording{}.dmx(5, {1}).frame_delay(kFrame), {});
    start();
    Discovery discovery(bus().address());
    const std::string nine = node(5, "10.0.0.9", wire_.port());
    discovery.announce(nine + ";" + nine);
    discovery.announce(node(5, "10.0.0.2", wire_.port()));
    play_until("10.0.0.2");
    // One call may still lie between; from here on the two alternate.
    wait_for_node("10.0.0.9");
    EXPECT_EQ(next_destinations(4), (Texts{"10.0.0.2", "10.0.0.9", "10.0.0.2", "10.0.0.9"}));
    const std::string gone = "0" + nine.substr(1);
    discovery.announce(gone + ";" + node(5, "10.0.0.1", wire_.port()));
    wait_for_node("10.0.0.1");
    EXPECT_EQ(next_destinations(5), (Texts{"10.0.0.2", "10.0.0.9", "10.0.0.1", "10.0.0.2", "10.0.0.9"}));
    // Any state but 1 removes.
    discovery.announce("2" + nine.substr(1) + ";" + node(5, "10.0.0.0", wire_.port()));
    wait_for_node("10.0.0.0");
    EXPECT_EQ(next_destinations(5), (Texts{"10.0.0.1", "10.0.0.2", "10.0.0.0", "10.0.0.1", "10.0.0.2"}));
}

TEST_F(RoutingTest, NodesOfOneAddressAndSeveralPortsAreSeveralNodes) {
    ForwarderSocket second;
    add_playlist(1, true, Recording{}.dmx(5, {1}).frame_delay(kFrame), {});
    start();
    Discovery discovery(bus().address());
    discovery.announce(node(5, "10.0.0.9", wire_.port()) + ";" + node(5, "10.0.0.9", second.port()));
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(second.next().port(), second.port());
    EXPECT_EQ(wire_.next().port(), wire_.port());
}

TEST_F(RoutingTest, MalformedNodeRecordsAreIgnoredAndTheOthersApply) {
    add_playlist(1, true, Recording{}.dmx(5, {1}).dmx(0, {1}).frame_delay(kFrame), {});
    start();
    Discovery discovery(bus().address());
    const std::string port = std::to_string(wire_.port());
    discovery.announce(";;1:5:10.0.0.1;1:5:10.0.0.2:" + port + ":x;1:x:10.0.0.3:" + port +
                       ";1:5:10.0.0.4:" + port + ";");
    play_until("10.0.0.3");
    // A universe that is no number is universe 0.
    const std::vector<Frame> frames = wire_.next(2);
    EXPECT_EQ(frames[0].ip(), "10.0.0.4");
    EXPECT_EQ(frames[0].universe(), 5);
    EXPECT_EQ(frames[1].ip(), "10.0.0.3");
    EXPECT_EQ(frames[1].universe(), 0);
}

TEST_F(RoutingTest, ANodesTextAndPortStandInTheHeaderAsAnnounced) {
    add_playlist(1, true, Recording{}.dmx(5, {1}).frame_delay(kFrame), {});
    start();
    Discovery discovery(bus().address());
    // Sent to the port's low 16 bits; the text is cut where the port's field begins.
    discovery.announce(node(5, "a node's name, at length", 65536 + wire_.port()));
    EXPECT_TRUE(controller().play(1));
    const Frame frame = wire_.next();
    EXPECT_EQ(std::string(frame.bytes.begin() + 4, frame.bytes.begin() + 20), "a node's name, a");
    EXPECT_EQ(frame.port(), 65536 + wire_.port());
}

TEST_F(RoutingTest, AFailedSendEndsThePacketsRemainingNodesAndShowsItsError) {
    add_playlist(1, true, Recording{}.dmx(5, {1}).frame_delay(kFrame), {});
    start();
    Discovery discovery(bus().address());
    // Nothing can be sent to port 0. The node before it gets the frame, the one behind it does not.
    discovery.announce(node(5, "10.0.0.1", wire_.port()) + ";" + node(5, "10.0.0.2", 0) + ";" +
                       node(5, "10.0.0.3", wire_.port()));
    controller().set_log_level(6);
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(next_destinations(4), (Texts{"10.0.0.1", "10.0.0.1", "10.0.0.1", "10.0.0.1"}));
    EXPECT_TRUE(
        service().wait_for_log("info [Repeater::do_render_work] Can't send packet (playlist_id:1, packet:0, "
                               "universe:5) due to '" +
                               std::string(std::strerror(EINVAL)) + "', errno " + std::to_string(EINVAL)));
}

TEST_F(RoutingTest, ExplicitDestinationsIgnoreNodes) {
    add_playlist(1, true, Recording{}.dmx(5, {1}).dmx(6, {1}).frame_delay(kFrame),
                 {wire_.output("5", "10.0.0.1")});
    start();
    Discovery discovery(bus().address());
    discovery.announce(node(5, "10.0.0.2", wire_.port()) + ";" + node(6, "10.0.0.3", wire_.port()));
    play_until("10.0.0.3");
    EXPECT_EQ(next_destinations(4), (Texts{"10.0.0.1", "10.0.0.3", "10.0.0.1", "10.0.0.3"}));
}

/// What a brand file's code becomes in the header.
struct BrandCase {
    const char* name;
    const char* brand;
    std::uint32_t manufacturer;
};

class BrandTest : public RoutingTest, public testing::WithParamInterface<BrandCase> {};

TEST_P(BrandTest, TheManufacturerCodeHeadsTheDatagram) {
    add_playlist(1, false, Recording{}.dmx(1, {1}), {wire_.output("1")});
    ServiceSettings settings;
    settings.brand = GetParam().brand;
    {
        // Whether this process may have mounts of its own shows only when it tries.
        Service attempt(installation(), settings);
        if (const int error = attempt.program().start_error(); error != 0) {
            GTEST_SKIP() << "needs mounts of its own: " << std::strerror(error);
        }
    }
    start(settings);
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(wire_.next().manufacturer(), GetParam().manufacturer);
}

INSTANTIATE_TEST_SUITE_P(Brands, BrandTest,
                         testing::Values(BrandCase{"Text", R"({"manufacturer_id":"18291"})", 18291},
                                         BrandCase{"Number", R"({"manufacturer_id":513})", 513},
                                         BrandCase{"Absent", R"({"model":"X"})", 0},
                                         BrandCase{"TooLarge", R"({"manufacturer_id":65538})", 2},
                                         BrandCase{"UnusableFile", R"([])", 0x7FF0}),
                         [](const testing::TestParamInfo<BrandCase>& brand) {
                             return std::string(brand.param.name);
                         });
