// Set-up, its failures, and the end of the socket.

#include <cerrno>
#include <optional>
#include <type_traits>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ondra/net/udp_socket.h"
#include "system_calls.h"

namespace {

using ondra::net::HostAddress;
using ondra::net::UdpSocket;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(!std::is_copy_constructible_v<UdpSocket> && !std::is_move_constructible_v<UdpSocket>);

bool is_open(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

int option(int descriptor, int name) {
    int value = -1;
    socklen_t length = sizeof value;
    return getsockopt(descriptor, SOL_SOCKET, name, &value, &length) == 0 ? value : -1;
}

class UdpSocketSetupTest : public testing::Test {
protected:
    UdpSocketSetupTest() { system_calls = SystemCalls(); }

    static void fail(const char* call, int times = 1) {
        system_calls.failing = call;
        system_calls.failures = times;
        system_calls.error = EPERM;
    }
};

TEST_F(UdpSocketSetupTest, UnusedSocketMakesNoSystemCall) {
    { const UdpSocket socket; }
    EXPECT_THAT(system_calls.made, IsEmpty());
}

TEST_F(UdpSocketSetupTest, SetUpMakesANonBlockingBroadcastingIpv4DatagramSocket) {
    UdpSocket socket;
    ASSERT_TRUE(socket.initialize());
    EXPECT_THAT(system_calls.made, ElementsAre("socket", "F_GETFL", "F_SETFL", "setsockopt"));
    EXPECT_EQ(system_calls.flags_written, system_calls.flags_read | O_NONBLOCK);
    const int descriptor = system_calls.created.at(0);
    EXPECT_NE(fcntl(descriptor, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(option(descriptor, SO_BROADCAST), 0);
    EXPECT_EQ(option(descriptor, SO_REUSEADDR), 0);
    EXPECT_EQ(option(descriptor, SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(option(descriptor, SO_DOMAIN), AF_INET);
}

TEST_F(UdpSocketSetupTest, SetUpIsDoneOnce) {
    UdpSocket socket;
    EXPECT_TRUE(socket.initialize());
    EXPECT_TRUE(socket.initialize());
    EXPECT_TRUE(socket.bind(0));
    EXPECT_EQ(system_calls.count("socket"), 1);
}

TEST_F(UdpSocketSetupTest, DestructorClosesTheDescriptor) {
    std::optional<UdpSocket> socket(std::in_place);
    ASSERT_TRUE(socket->initialize());
    socket.reset();
    EXPECT_EQ(system_calls.closed, system_calls.created);
    EXPECT_FALSE(is_open(system_calls.created.at(0)));
}

TEST_F(UdpSocketSetupTest, FailedCreationLeavesNothingToCloseAndIsTriedAgain) {
    fail("socket");
    {
        UdpSocket socket;
        EXPECT_FALSE(socket.initialize());
    }
    EXPECT_THAT(system_calls.closed, IsEmpty());
    fail("socket");
    UdpSocket socket;
    EXPECT_FALSE(socket.initialize());
    EXPECT_TRUE(socket.initialize());
}

/// Each step after the creation.
class UdpSocketFailedStepTest : public UdpSocketSetupTest, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Steps, UdpSocketFailedStepTest, testing::Values("F_GETFL", "F_SETFL", "setsockopt"));

TEST_P(UdpSocketFailedStepTest, DescriptorIsKeptOpenAndTheNextAttemptCreatesAFurtherOne) {
    fail(GetParam());
    std::optional<UdpSocket> socket(std::in_place);
    EXPECT_FALSE(socket->initialize());
    ASSERT_EQ(system_calls.created.size(), 1U);
    EXPECT_THAT(system_calls.closed, IsEmpty());
    EXPECT_EQ(system_calls.made.back(), GetParam());

    EXPECT_TRUE(socket->initialize());
    ASSERT_EQ(system_calls.created.size(), 2U);
    const int left = system_calls.created[0];
    const int owned = system_calls.created[1];
    EXPECT_NE(left, owned);
    EXPECT_TRUE(is_open(left));

    socket.reset();
    EXPECT_THAT(system_calls.closed, ElementsAre(owned));
    EXPECT_TRUE(is_open(left));
    close(left);
}

TEST_P(UdpSocketFailedStepTest, AFailedCreationAfterwardsForgetsTheDescriptorWhichStaysOpen) {
    fail(GetParam());
    std::optional<UdpSocket> socket(std::in_place);
    EXPECT_FALSE(socket->initialize());
    ASSERT_EQ(system_calls.created.size(), 1U);
    fail("socket");
    EXPECT_FALSE(socket->initialize());
    socket.reset();
    EXPECT_THAT(system_calls.closed, IsEmpty());
    EXPECT_TRUE(is_open(system_calls.created[0]));
    close(system_calls.created[0]);
}

TEST_P(UdpSocketFailedStepTest, DestructorClosesTheDescriptorOfTheFailedAttempt) {
    fail(GetParam());
    {
        UdpSocket socket;
        EXPECT_FALSE(socket.initialize());
    }
    EXPECT_EQ(system_calls.closed, system_calls.created);
}

TEST_P(UdpSocketFailedStepTest, ObjectCountsAsNotSetUp) {
    fail(GetParam());
    UdpSocket socket;
    EXPECT_FALSE(socket.initialize());
    EXPECT_FALSE(socket.hasPendingDatagrams());
    EXPECT_EQ(socket.pendingDatagramSize(), -1);
    EXPECT_EQ(system_calls.count("recvfrom"), 0);
}

TEST_F(UdpSocketSetupTest, EveryOperationReportsAFailedSetUp) {
    fail("socket", 5);
    UdpSocket socket;
    char byte = 'x';
    EXPECT_FALSE(socket.bind(0));
    EXPECT_FALSE(socket.bind(HostAddress(), 0));
    EXPECT_EQ(socket.readDatagram(&byte, 1), 0);
    EXPECT_EQ(socket.writeDatagram(&byte, 1, HostAddress("127.0.0.1"), 9), -1);
    EXPECT_FALSE(socket.waitForReadyRead(0));
    EXPECT_EQ(system_calls.count("socket"), 5);
    EXPECT_EQ(system_calls.made.size(), 5U);
}

TEST_F(UdpSocketSetupTest, FailedSetUpLeavesTheSenderUnwritten) {
    fail("socket");
    UdpSocket socket;
    HostAddress sender("10.0.0.5");
    int port = 7;
    EXPECT_EQ(socket.readDatagram(nullptr, 0, &sender, &port), 0);
    EXPECT_EQ(sender.text(), "10.0.0.5");
    EXPECT_EQ(port, 7);
}

TEST_F(UdpSocketSetupTest, QueriesDoNotSetUp) {
    const UdpSocket socket;
    EXPECT_FALSE(socket.hasPendingDatagrams());
    EXPECT_EQ(socket.pendingDatagramSize(), -1);
    EXPECT_THAT(system_calls.made, IsEmpty());
    EXPECT_EQ(socket.select_with_tm(0, true), 0);
    EXPECT_EQ(system_calls.count("socket"), 0);
}

TEST_F(UdpSocketSetupTest, ReadWriteAndWaitSetUpOnFirstUse) {
    UdpSocket reading;
    char byte = 0;
    EXPECT_EQ(reading.readDatagram(&byte, 1), -1);
    UdpSocket writing;
    EXPECT_EQ(writing.writeDatagram(&byte, 1, HostAddress("127.0.0.1"), 9), 1);
    UdpSocket waiting;
    EXPECT_FALSE(waiting.waitForReadyRead(0));
    EXPECT_EQ(system_calls.count("socket"), 3);
}

TEST_F(UdpSocketSetupTest, AnAddressThatIsRefusedIsJudgedAfterTheSetUp) {
    UdpSocket binding;
    EXPECT_FALSE(binding.bind(HostAddress("127.0.0.1"), 0));
    EXPECT_EQ(system_calls.count("setsockopt"), 1);
    UdpSocket writing;
    EXPECT_EQ(writing.writeDatagram("x", 1, HostAddress("localhost"), 9), -1);
    EXPECT_EQ(system_calls.count("setsockopt"), 2);
    EXPECT_EQ(system_calls.count("sendto"), 0);
}

}  // namespace
