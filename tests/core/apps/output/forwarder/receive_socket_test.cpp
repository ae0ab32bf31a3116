// The listening socket: occupied ports, the buffer's size and the kernel's drops.
#include "receive_socket.h"

#include <array>
#include <bit>
#include <cstring>
#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/before_bind.h"
#include "udp_peer.h"

namespace {

using forwarder::ReceiveSocket;
using testing::AllOf;
using testing::HasSubstr;
using tests::free_port;

constexpr const char* kTable =
    "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode ref "
    "pointer\n"
    " 1000: 0100007F:1936 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 4711 2 0\n"
    " 1001: 00000000:1937 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 4712 2 0\n"
    " 1002: 0200007F:1938 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 4713 2 0\n"
    " 1003: 0100007F:C001 0100007F:1939 01 00000000:00000000 00:00000000 00000000     0        0 4714 2 0\n"
    " 1004: 0100007F:193A 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 4715 2 0\n"
    " 1004: 0100007F:193A 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 4715 2 0\n";

/// Hands a drop counter to the socket the way the kernel does.
void note(ReceiveSocket& socket, std::uint32_t counter) {
    alignas(cmsghdr) std::array<unsigned char, CMSG_SPACE(sizeof counter)> control{};
    msghdr message{};
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* part = CMSG_FIRSTHDR(&message);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SO_RXQ_OVFL;
    part->cmsg_len = CMSG_LEN(sizeof counter);
    std::memcpy(CMSG_DATA(part), &counter, sizeof counter);
    socket.note_drops(message);
}

TEST(ReceiveSocketTest, TableIsSearchedForExactlyTheLoopbackAddressAndPort) {
    if constexpr (std::endian::native == std::endian::little) {
        EXPECT_TRUE(forwarder::is_bound_on_loopback(kTable, 6454, 1));
    }
    EXPECT_FALSE(forwarder::is_bound_on_loopback(kTable, 6455, 1)) << "the wildcard address is no obstacle";
    EXPECT_FALSE(forwarder::is_bound_on_loopback(kTable, 6456, 1));
    EXPECT_FALSE(forwarder::is_bound_on_loopback(kTable, 6457, 1)) << "a peer's port is none of ours";
    EXPECT_FALSE(forwarder::is_bound_on_loopback("", 6454, 1));
}

TEST(ReceiveSocketTest, OwnSocketIsNoObstacleHoweverOftenTheTableListsIt) {
    EXPECT_FALSE(forwarder::is_bound_on_loopback(kTable, 6458, 4715));
    if constexpr (std::endian::native == std::endian::little) {
        EXPECT_TRUE(forwarder::is_bound_on_loopback(kTable, 6458, 4711));
    }
}

TEST(ReceiveSocketTest, AdviceNamesTheSystemSettingWhenABurstDoesNotFit) {
    EXPECT_EQ(forwarder::receive_buffer_advice(2'560'000), "");
    EXPECT_THAT(forwarder::receive_buffer_advice(2'559'999),
                HasSubstr("sysctl -w net.core.rmem_max=4194304"));
    EXPECT_THAT(forwarder::receive_buffer_advice(212'992), HasSubstr("about 166 datagrams"));
}

TEST(ReceiveSocketTest, OpenSocketReceivesOnTheLoopbackAddress) {
    ReceiveSocket socket;
    const std::uint16_t port = free_port();
    ASSERT_FALSE(socket.open(port));
    EXPECT_EQ(socket.port(), port);
    EXPECT_GT(socket.receive_buffer(), 0);
    EXPECT_EQ(socket.kernel_drops(), 0U);
    EXPECT_TRUE(tests::UdpPeer().send(port, {1, 2, 3}));
    pollfd wait{socket.descriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&wait, 1, 60'000), 1);
    sockaddr_in bound{};
    socklen_t size = sizeof bound;
    ASSERT_EQ(getsockname(socket.descriptor(), reinterpret_cast<sockaddr*>(&bound), &size), 0);
    EXPECT_EQ(ntohl(bound.sin_addr.s_addr), INADDR_LOOPBACK) << "nobody from elsewhere reaches it";
}

TEST(ReceiveSocketTest, SecondSocketOnThePortIsRefusedAlthoughBothReuseAddresses) {
    ReceiveSocket first;
    const std::uint16_t port = free_port();
    ASSERT_FALSE(first.open(port));
    ReceiveSocket second;
    const auto failure = second.open(port);
    ASSERT_TRUE(failure);
    EXPECT_TRUE(failure->port_in_use);
    EXPECT_THAT(failure->message, AllOf(HasSubstr("port " + std::to_string(port)), HasSubstr("--port")));
}

TEST(ReceiveSocketTest, SocketThatIsBoundBetweenTheLookAndTheBindIsNotRobbedOfItsDatagrams) {
    const std::uint16_t port = free_port();
    std::optional<tests::UdpPeer> rival;
    tests::before_bind = [&] { rival.emplace("127.0.0.1", port, true); };
    ReceiveSocket socket;
    const auto failure = socket.open(port);
    ASSERT_TRUE(failure);
    EXPECT_TRUE(failure->port_in_use);
    EXPECT_THAT(failure->message,
                AllOf(HasSubstr("port " + std::to_string(port)), HasSubstr("at the same moment")));
    ASSERT_TRUE(rival);
    EXPECT_TRUE(tests::UdpPeer().send(port, {1, 2, 3}));
    EXPECT_EQ(rival->receive(), (tests::Bytes{1, 2, 3}));
}

TEST(ReceiveSocketTest, ShutSocketKeepsWhatItHoldsAndCountsWhatItRefuses) {
    ReceiveSocket socket;
    ASSERT_FALSE(socket.open(free_port()));
    const tests::UdpPeer peer;
    ASSERT_TRUE(peer.send(socket.port(), {1}));
    socket.refuse_more();
    ASSERT_TRUE(peer.send(socket.port(), {2}));
    unsigned char byte = 0;
    EXPECT_EQ(recv(socket.descriptor(), &byte, 1, MSG_DONTWAIT), 1);
    EXPECT_EQ(byte, 1);
    EXPECT_EQ(recv(socket.descriptor(), &byte, 1, MSG_DONTWAIT), -1);
    EXPECT_EQ(socket.kernel_drops(), 1U);
}

TEST(ReceiveSocketTest, ProgramThatHoldsTheWildcardAddressForItselfIsAnObstacle) {
    const tests::UdpPeer holder("0.0.0.0");
    ReceiveSocket socket;
    const auto failure = socket.open(holder.port());
    ASSERT_TRUE(failure);
    EXPECT_TRUE(failure->port_in_use);
}

TEST(ReceiveSocketTest, WildcardAddressCanBeSharedInEitherOrder) {
    const tests::UdpPeer before("0.0.0.0", 0, true);
    ReceiveSocket socket;
    EXPECT_FALSE(socket.open(before.port()));
    EXPECT_NO_THROW(tests::UdpPeer("0.0.0.0", before.port(), true));
}

TEST(ReceiveSocketTest, PortThatTheUserMayNotBindIsNotCalledInUse) {
    const uid_t user = geteuid();
    if (user == 0 && seteuid(65534) != 0) {
        GTEST_SKIP() << "there is no other user here";
    }
    ReceiveSocket socket;
    const auto failure = socket.open(1);
    if (user == 0) {
        ASSERT_EQ(seteuid(0), 0);
    }
    if (!failure) {
        GTEST_SKIP() << "anybody may bind any port here";
    }
    EXPECT_FALSE(failure->port_in_use);
    EXPECT_THAT(failure->message, AllOf(HasSubstr("port 1:"), HasSubstr("Permission denied")));
}

TEST(ReceiveSocketTest, DropCounterIsFollowedAcrossItsWrap) {
    ReceiveSocket socket;  // never opened, so only what is noted counts
    note(socket, 5);
    EXPECT_EQ(socket.kernel_drops(), 5U);
    note(socket, 0xFFFFFFFF);
    EXPECT_EQ(socket.kernel_drops(), 0xFFFFFFFFU);
    note(socket, 1);
    EXPECT_EQ(socket.kernel_drops(), 0x100000001U);
}

TEST(ReceiveSocketTest, DropsAreKnownWithoutALaterDatagram) {
    ReceiveSocket socket;
    ASSERT_FALSE(socket.open(free_port()));
    // The smallest buffer the kernel grants, so that a few datagrams overflow it.
    const int smallest = 0;
    setsockopt(socket.descriptor(), SOL_SOCKET, SO_RCVBUF, &smallest, sizeof smallest);
    constexpr std::uint64_t kSent = 100;
    const tests::UdpPeer peer;
    for (std::uint64_t i = 0; i < kSent; ++i) {
        ASSERT_TRUE(peer.send(socket.port(), tests::Bytes(554)));
    }
    std::uint64_t kept = 0;
    for (unsigned char byte = 0; recv(socket.descriptor(), &byte, 1, MSG_DONTWAIT) >= 0;) {
        ++kept;
    }
    EXPECT_LT(kept, kSent);
    EXPECT_EQ(socket.kernel_drops(), kSent - kept);
}

}  // namespace
