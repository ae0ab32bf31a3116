// The real program with the options that change what is sent, seen from a receiver; and without them.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "running_forwarder.h"
#include "support/eventually.h"

namespace {

using testing::HasSubstr;
using tests::artdmx;
using tests::at;
using tests::Bytes;
using tests::datagram;
using tests::destination_of;
using tests::number_of;
using tests::RunningForwarder;
using tests::UdpPeer;

const Bytes kSync{'A', 'r', 't', '-', 'N', 'e', 't', 0, 0x00, 0x52, 0, 14, 0, 0};

/// A packet of 530 bytes whose Length field says less.
Bytes short_frame(unsigned universe, unsigned char level, unsigned char mark, unsigned char length) {
    Bytes packet = artdmx(universe, level, mark);
    packet[16] = 0;
    packet[17] = length;
    return packet;
}

Bytes numbered(Bytes packet, unsigned char sequence, std::size_t size = 530) {
    packet[12] = sequence;
    packet.resize(size);
    return packet;
}

/// Sends datagrams so that they are all there when the program looks.
void send_at_once(RunningForwarder& forwarder, const std::vector<Bytes>& datagrams) {
    const UdpPeer service;
    ASSERT_TRUE(forwarder.program().halt());
    for (const Bytes& bytes : datagrams) {
        ASSERT_TRUE(service.send(forwarder.port(), bytes));
    }
    forwarder.program().signal(SIGCONT);
}

/// A node that also sees each packet's traffic class.
class Node {
public:
    Node() {
        const int on = 1;
        setsockopt(peer_.descriptor(), IPPROTO_IP, IP_RECVTOS, &on, sizeof on);
    }
    [[nodiscard]] std::uint16_t port() const { return peer_.port(); }
    [[nodiscard]] bool pending() const { return peer_.pending(); }
    /// Class of the last packet received, 0 to 63.
    [[nodiscard]] int dscp() const { return dscp_; }

    /// The next packet; empty when none comes before the deadline.
    Bytes receive() {
        pollfd wait{peer_.descriptor(), POLLIN, 0};
        poll(&wait, 1, static_cast<int>(UdpPeer::kDeadline.count()));
        Bytes bytes(2048);
        alignas(cmsghdr) std::array<unsigned char, 64> control{};
        iovec part{bytes.data(), bytes.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t size = recvmsg(peer_.descriptor(), &message, MSG_DONTWAIT);
        bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        dscp_ = -1;
        for (cmsghdr* each = CMSG_FIRSTHDR(&message); each != nullptr; each = CMSG_NXTHDR(&message, each)) {
            if (each->cmsg_level == IPPROTO_IP && each->cmsg_type == IP_TOS) {
                dscp_ = *CMSG_DATA(each) >> 2;
            }
        }
        return bytes;
    }

private:
    UdpPeer peer_{"127.0.0.2"};
    int dscp_ = -1;
};

TEST(ForwarderOptionsTest, WithoutOptionsNothingIsChangedAddedOrRepeated) {
    RunningForwarder plain;
    RunningForwarder repeating({"--keep-alive", "0.8", "--sync"});
    ASSERT_TRUE(plain.ready() && repeating.ready());
    Node node;
    Node other;
    const std::vector<Bytes> packets{short_frame(1, 7, 77, 4), short_frame(1, 8, 70, 3), artdmx(2, 9, 0)};
    for (const Bytes& packet : packets) {
        ASSERT_TRUE(UdpPeer().send(plain.port(), datagram("127.0.0.2", node.port(), packet)));
        EXPECT_EQ(node.receive(), packet);
        EXPECT_EQ(node.dscp(), 0);
    }
    // How long nothing more has come is measured by a program that does repeat, and that heard it later.
    ASSERT_TRUE(UdpPeer().send(repeating.port(), datagram("127.0.0.2", other.port(), packets.back())));
    EXPECT_EQ(other.receive(), packets.back());
    EXPECT_EQ(other.receive(), kSync);
    EXPECT_EQ(other.receive(), packets.back()) << "again";
    EXPECT_EQ(other.receive(), kSync);
    EXPECT_FALSE(node.pending());
    const auto report = plain.stop();
    ASSERT_TRUE(report);
    EXPECT_EQ(number_of(destination_of(*report, "127.0.0.2"), "packets"), 3);
    EXPECT_EQ(number_of(destination_of(*report, "127.0.0.2"), "bytes"), 3 * 530);
    EXPECT_FALSE(report->contains(QLatin1String("outlet")));
    EXPECT_FALSE(node.pending());
}

TEST(ForwarderOptionsTest, AllTogetherAreSeenByTheReceiver) {
    std::string directory = (std::filesystem::temp_directory_path() / "forwarder-XXXXXX").string();
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    const std::string metrics = directory + "/forwarder.prom";
    const UdpPeer copies("127.0.0.3");
    RunningForwarder forwarder({"--sequence", "--sync", "--keep-alive", "0.8", "--pace", "5000", "--dscp",
                                "--trim", "--metrics", metrics, "--tee",
                                "127.0.0.3:" + std::to_string(copies.port())});
    ASSERT_TRUE(forwarder.ready()) << forwarder.program().error_output();
    Node node;
    const Bytes first = short_frame(1, 7, 77, 4);
    const Bytes second = short_frame(2, 8, 70, 3);
    const std::vector<Bytes> sent{datagram("127.0.0.2", node.port(), first),
                                  datagram("127.0.0.2", node.port(), second)};
    send_at_once(forwarder, sent);
    // As they come, and twice more by themselves.
    for (unsigned char round = 1; round <= 3; ++round) {
        ASSERT_EQ(node.receive(), numbered(first, round, 22));
        EXPECT_EQ(node.dscp(), 46);
        ASSERT_EQ(node.receive(), numbered(second, round, 22));
        ASSERT_EQ(node.receive(), kSync);
        EXPECT_EQ(node.dscp(), 46);
    }
    EXPECT_EQ(copies.receive(), sent[0]) << "the copies are of what came";
    EXPECT_EQ(copies.receive(), sent[1]);
    const auto report = forwarder.stop();
    ASSERT_TRUE(report);
    EXPECT_FALSE(copies.pending());
    const QJsonObject outlet = at(*report, "outlet").toObject();
    const QJsonObject counters = destination_of(*report, "127.0.0.2");
    EXPECT_EQ(number_of(outlet, "streams"), 2);
    EXPECT_GE(number_of(outlet, "resent"), 4);
    EXPECT_GE(number_of(outlet, "syncs"), 3);
    EXPECT_EQ(number_of(counters, "packets") + number_of(counters, "unsent"),
              2 + number_of(outlet, "resent") + number_of(outlet, "syncs"));
    std::ifstream file(metrics);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    EXPECT_THAT(text, HasSubstr("\ncuewright_forwarder_accepted_datagrams_total 2\n"));
    EXPECT_THAT(text, HasSubstr("\ncuewright_forwarder_resent_packets_total " +
                                std::to_string(number_of(outlet, "resent")) + "\n"));
    std::filesystem::remove_all(directory);
}

TEST(ForwarderOptionsTest, EachFrameOfABurstIsFollowedByItsOwnArtSync) {
    RunningForwarder forwarder({"--sync"});
    ASSERT_TRUE(forwarder.ready());
    Node node;
    Node other;
    std::vector<Bytes> datagrams;
    for (unsigned char frame = 1; frame <= 3; ++frame) {
        for (unsigned universe = 1; universe <= 2; ++universe) {
            datagrams.push_back(datagram("127.0.0.2", node.port(), artdmx(universe, frame)));
        }
        datagrams.push_back(datagram("127.0.0.2", other.port(), artdmx(5, frame)));
    }
    send_at_once(forwarder, datagrams);
    for (unsigned char frame = 1; frame <= 3; ++frame) {
        ASSERT_EQ(node.receive(), artdmx(1, frame)) << "unchanged, in its whole length";
        ASSERT_EQ(node.receive(), artdmx(2, frame));
        ASSERT_EQ(node.receive(), kSync);
        ASSERT_EQ(other.receive(), artdmx(5, frame));
        ASSERT_EQ(other.receive(), kSync);
    }
    ASSERT_TRUE(forwarder.stop());
    EXPECT_FALSE(node.pending());
}

TEST(ForwarderOptionsTest, EndSendsTheArtSyncOfTheLastGroup) {
    RunningForwarder forwarder({"--sync"});
    ASSERT_TRUE(forwarder.ready());
    Node node;
    ASSERT_TRUE(forwarder.program().halt());
    ASSERT_TRUE(UdpPeer().send(forwarder.port(), datagram("127.0.0.2", node.port(), artdmx(1))));
    forwarder.program().signal(SIGTERM);
    forwarder.program().signal(SIGCONT);
    EXPECT_EQ(node.receive(), artdmx(1));
    EXPECT_EQ(node.receive(), kSync);
    EXPECT_EQ(forwarder.program().wait_exit(), 0);
}

TEST(ForwarderOptionsTest, PacedPacketsKeepTheirDistanceAndOnlyTheNewestFrameWaits) {
    constexpr auto kGap = std::chrono::milliseconds(50);
    RunningForwarder forwarder({"--pace", "50ms"});
    ASSERT_TRUE(forwarder.ready());
    Node node;
    std::vector<Bytes> datagrams;
    for (unsigned char frame = 1; frame <= 3; ++frame) {
        for (unsigned universe = 1; universe <= 4; ++universe) {
            datagrams.push_back(datagram("127.0.0.2", node.port(), artdmx(universe, frame)));
        }
    }
    const auto begin = std::chrono::steady_clock::now();
    send_at_once(forwarder, datagrams);
    for (unsigned universe = 1; universe <= 4; ++universe) {
        ASSERT_EQ(node.receive(), artdmx(universe, 3));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, kGap * (static_cast<int>(universe) - 1));
    }
    const auto report = forwarder.stop();
    ASSERT_TRUE(report);
    EXPECT_FALSE(node.pending());
    EXPECT_EQ(number_of(at(*report, "outlet").toObject(), "superseded"), 8);
    EXPECT_EQ(number_of(destination_of(*report, "127.0.0.2"), "packets"), 4);
    EXPECT_EQ(number_of(destination_of(*report, "127.0.0.2"), "unsent"), 8);
}

TEST(ForwarderOptionsTest, MetricsThatCannotBeWrittenAreReportedOnceAndTheForwardingGoesOn) {
    RunningForwarder forwarder({"--metrics", "/nonexistent/forwarder.prom"});
    ASSERT_TRUE(forwarder.ready());
    const std::string line = "cannot write the metrics: /nonexistent/forwarder.prom: No such file";
    EXPECT_TRUE(forwarder.program().wait_for_error(line));
    Node node;
    ASSERT_TRUE(UdpPeer().send(forwarder.port(), datagram("127.0.0.2", node.port(), artdmx(1))));
    EXPECT_EQ(node.receive(), artdmx(1));
    EXPECT_TRUE(forwarder.stop()) << "status 0";
    const std::string errors = forwarder.program().error_output();
    EXPECT_EQ(errors.find(line), errors.rfind(line)) << "not again at the end";
}

}  // namespace
