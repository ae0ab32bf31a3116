// The real program with destinations that cannot be reached, in a network of this test's own.
#include <algorithm>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "running_forwarder.h"
#include "support/private_network.h"

namespace {

using tests::artdmx;
using tests::at;
using tests::datagram;
using tests::destination_of;
using tests::number_of;
using tests::RunningForwarder;
using tests::UdpPeer;

const std::string kObstacle = tests::enter_private_network();

class ForwarderUnreachableTest : public testing::Test {
protected:
    void SetUp() override {
        if (!kObstacle.empty()) {
            GTEST_SKIP() << kObstacle;
        }
    }

    static int count_of(const std::string& text, const std::string& part) {
        int count = 0;
        for (std::size_t found = text.find(part); found != std::string::npos;
             found = text.find(part, found + 1)) {
            ++count;
        }
        return count;
    }
};

TEST_F(ForwarderUnreachableTest, DestinationWithoutARouteCostsTheOthersNothing) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready()) << forwarder.program().error_output();
    const UdpPeer node("127.0.0.2");
    const UdpPeer service;
    constexpr int kRounds = 500;
    for (int i = 0; i < kRounds; ++i) {
        service.send(forwarder.port(), datagram("192.0.2.1", 6454, artdmx(0)));
        service.send(forwarder.port(), datagram("127.0.0.2", node.port(), artdmx(1)));
        ASSERT_EQ(node.receive(), artdmx(1)) << i;
    }
    const auto report = forwarder.stop();
    ASSERT_TRUE(report);
    EXPECT_EQ(number_of(destination_of(*report, "127.0.0.2"), "packets"), kRounds);
    const QJsonObject dead = destination_of(*report, "192.0.2.1");
    EXPECT_EQ(number_of(dead, "packets"), 0);
    EXPECT_EQ(number_of(dead, "unsent"), kRounds);
    EXPECT_GE(number_of(dead, "errors"), 1);
    EXPECT_LT(number_of(dead, "errors"), kRounds) << "it is not tried for every packet";
    EXPECT_EQ(tests::at(dead, "last_error"), QLatin1String("Network is unreachable"));
}

TEST_F(ForwarderUnreachableTest, ErrorsOfOneDestinationAreLoggedOnceNotPerPacket) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer node("127.0.0.2");
    const UdpPeer service;
    const auto begin = std::chrono::steady_clock::now();
    // Several back-offs' worth of tries.
    const QJsonObject report = forwarder.report_when([&](const QJsonObject& r) {
        service.send(forwarder.port(), datagram("192.0.2.1", 6454));
        return number_of(destination_of(r, "192.0.2.1"), "errors") >= 3;
    });
    EXPECT_GE(number_of(destination_of(report, "192.0.2.1"), "errors"), 3);
    ASSERT_TRUE(forwarder.stop());
    const int lines =
        count_of(forwarder.program().error_output(), "sending to 192.0.2.1:6454: Network is unreachable");
    // One more each ten seconds, which only a stalled machine needs here.
    const auto more = (std::chrono::steady_clock::now() - begin) / std::chrono::seconds(10);
    EXPECT_GE(lines, 1);
    EXPECT_LE(lines, 1 + more);
}

TEST_F(ForwarderUnreachableTest, ManyDeadDestinationsLogNoMoreThanAHandfulOfLines) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer service;
    constexpr int kDead = 200;
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < kDead; ++i) {
        service.send(forwarder.port(), datagram("192.0.2." + std::to_string(i), 6454));
    }
    (void)forwarder.report_when([](const QJsonObject& r) { return number_of(r, "accepted") == kDead; });
    ASSERT_TRUE(forwarder.stop());
    const int lines = count_of(forwarder.program().error_output(), "Network is unreachable");
    EXPECT_GE(lines, 1);
    // Ten at once and one more each second.
    EXPECT_LE(lines, 10 + (std::chrono::steady_clock::now() - begin) / std::chrono::seconds(1));
}

TEST_F(ForwarderUnreachableTest, DestinationIsServedAgainSoonAfterItsRouteAppears) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer everywhere("0.0.0.0");
    const UdpPeer service;
    service.send(forwarder.port(), datagram("198.51.100.1", everywhere.port()));
    (void)forwarder.report_when(
        [](const QJsonObject& r) { return number_of(destination_of(r, "198.51.100.1"), "unsent") == 1; });
    if (!tests::run_ip("address add 198.51.100.1/32 dev lo")) {
        GTEST_SKIP() << "iproute2 is missing";
    }
    const auto report = forwarder.report_when([&](const QJsonObject& r) {
        service.send(forwarder.port(), datagram("198.51.100.1", everywhere.port()));
        return number_of(destination_of(r, "198.51.100.1"), "packets") > 0;
    });
    EXPECT_GT(number_of(destination_of(report, "198.51.100.1"), "packets"), 0);
    EXPECT_TRUE(everywhere.receive());
}

TEST_F(ForwarderUnreachableTest, LateReportAboutOneOfTheSharedDestinationsCostsTheOthersNothing) {
    if (!tests::run_ip("link add rig0 type veth peer name rig1") || !tests::run_ip("link set rig0 up") ||
        !tests::run_ip("link set rig1 up") || !tests::run_ip("address add 10.77.0.1/24 dev rig0")) {
        GTEST_SKIP() << "no virtual Ethernet pair here";
    }
    // One question, given up soon: a node that does not answer is reported within some milliseconds.
    std::ofstream("/proc/sys/net/ipv4/neigh/rig0/retrans_time_ms") << "10";
    std::ofstream("/proc/sys/net/ipv4/neigh/rig0/mcast_solicit") << "1";
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer node("0.0.0.0");
    const UdpPeer service;
    for (int i = 0; i < 512; ++i) {
        const std::string address = "127.1." + std::to_string(i / 200) + "." + std::to_string(1 + i % 200);
        service.send(forwarder.port(), datagram(address, node.port(), artdmx(0)));
        ASSERT_EQ(node.receive(), artdmx(0)) << i;
    }
    // From here on all share one socket. A packet to the dead one is always on the way, and only one: of many
    // reports that come in one by one during a send, only so many are passed over.
    int dead = 0;
    int sent = 0;
    const QJsonObject report = forwarder.report_when([&](const QJsonObject& r) {
        const int errors = std::max(number_of(at(r, "others").toObject(), "errors"), 0);
        if (errors >= dead) {
            service.send(forwarder.port(), datagram("10.77.0.2", 6454, artdmx(2)));
            ++dead;
        }
        service.send(forwarder.port(), datagram("127.2.0.1", node.port(), artdmx(1)));
        ++sent;
        EXPECT_EQ(node.receive(), artdmx(1)) << "packet " << sent;
        return HasFailure() || errors >= 5;
    });
    const QJsonObject others = at(report, "others").toObject();
    EXPECT_GE(number_of(others, "errors"), 5);
    EXPECT_EQ(at(others, "last_error"), QLatin1String("No route to host"));
    EXPECT_EQ(number_of(others, "unsent"), 0);
    EXPECT_THAT(forwarder.program().error_output(),
                testing::HasSubstr("sending to 10.77.0.2:6454: No route to host"));
    tests::run_ip("link del rig0");
}

TEST_F(ForwarderUnreachableTest, NodeThatNeverAnswersAddressResolutionCostsTheOthersNothing) {
    if (!tests::run_ip("link add rig0 type veth peer name rig1") || !tests::run_ip("link set rig0 up") ||
        !tests::run_ip("link set rig1 up") || !tests::run_ip("address add 10.77.0.1/24 dev rig0")) {
        GTEST_SKIP() << "no virtual Ethernet pair here";
    }
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer node("127.0.0.2");
    const UdpPeer service;
    // More than the kernel lets wait for one address, sent within the seconds in which it still asks.
    constexpr int kRounds = 300;
    for (int i = 0; i < kRounds; ++i) {
        for (int universe = 0; universe < 8; ++universe) {
            service.send(forwarder.port(), datagram("10.77.0.2", 6454, artdmx(2)));
        }
        service.send(forwarder.port(), datagram("127.0.0.2", node.port(), artdmx(1)));
        ASSERT_EQ(node.receive(), artdmx(1)) << i;
    }
    const auto report = forwarder.stop();
    ASSERT_TRUE(report);
    EXPECT_EQ(number_of(destination_of(*report, "127.0.0.2"), "packets"), kRounds);
    EXPECT_EQ(number_of(destination_of(*report, "127.0.0.2"), "waits"), 0);
    const QJsonObject dead = destination_of(*report, "10.77.0.2");
    EXPECT_EQ(number_of(dead, "packets") + number_of(dead, "unsent"), kRounds * 8);
    tests::run_ip("link del rig0");
}

}  // namespace
