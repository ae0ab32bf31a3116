// Traffic on loopback, and in a private network where broadcasts need one.

#include "ondra/net/udp_socket.h"

#include <cerrno>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/child_process.h"
#include "system_calls.h"

namespace {

using ondra::net::HostAddress;
using ondra::net::UdpSocket;

constexpr int kLongWait = 60'000;

sockaddr_in local_name(int descriptor) {
    sockaddr_in name{};
    socklen_t length = sizeof name;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&name), &length);
    return name;
}

/// A socket bound to a port of the system's choice.
class BoundSocket {
public:
    BoundSocket() {
        bound_ = socket_.bind(0);
        descriptor_ = system_calls.created.back();
    }
    [[nodiscard]] int port() const { return ntohs(local_name(descriptor_).sin_port); }
    [[nodiscard]] int descriptor() const { return descriptor_; }
    [[nodiscard]] bool bound() const { return bound_; }
    UdpSocket* operator->() { return &socket_; }

private:
    UdpSocket socket_;
    int descriptor_ = -1;
    bool bound_ = false;
};

class UdpSocketTest : public testing::Test {
protected:
    UdpSocketTest() { system_calls = SystemCalls(); }

    static int send(const std::string& text, const char* address, int port) {
        UdpSocket sender;
        return sender.writeDatagram(text.data(), static_cast<unsigned>(text.size()), HostAddress(address),
                                    port);
    }

    /// Queues one datagram at `receiver` and waits until it is there.
    static void queue(BoundSocket& receiver, const std::string& text) {
        ASSERT_EQ(send(text, "127.0.0.1", receiver.port()), static_cast<int>(text.size()));
        ASSERT_TRUE(receiver->waitForReadyRead(kLongWait));
    }

    static std::string read(BoundSocket& receiver) {
        char data[100];
        const int size = receiver->readDatagram(data, sizeof data);
        return size < 0 ? "error" : std::string(data, static_cast<std::size_t>(size));
    }

    static void fail(const char* call, int error, int times = 1) {
        system_calls.failing = call;
        system_calls.failures = times;
        system_calls.error = error;
    }
};

TEST_F(UdpSocketTest, DatagramArrivesWithItsSender) {
    BoundSocket receiver;
    BoundSocket sender;
    EXPECT_EQ(sender->writeDatagram("hello", 5, HostAddress("127.0.0.1"), receiver.port()), 5);
    ASSERT_TRUE(receiver->waitForReadyRead(kLongWait));
    char data[100];
    HostAddress address;
    int port = 0;
    ASSERT_EQ(receiver->readDatagram(data, sizeof data, &address, &port), 5);
    EXPECT_EQ(std::string(data, 5), "hello");
    EXPECT_EQ(address.text(), "127.0.0.1");
    EXPECT_EQ(port, sender.port());
}

TEST_F(UdpSocketTest, AddressAndPortOfTheSenderAreOptional) {
    BoundSocket receiver;
    queue(receiver, "hello");
    EXPECT_EQ(read(receiver), "hello");
}

TEST_F(UdpSocketTest, BindToZeroAddressCoversEveryLocalInterface) {
    BoundSocket receiver;
    ASSERT_TRUE(receiver.bound());
    EXPECT_EQ(local_name(receiver.descriptor()).sin_addr.s_addr, htonl(INADDR_ANY));
    for (const char* address : {"127.0.0.1", "127.0.0.2"}) {
        ASSERT_EQ(send("x", address, receiver.port()), 1);
        EXPECT_TRUE(receiver->waitForReadyRead(kLongWait)) << address;
        EXPECT_EQ(read(receiver), "x");
    }
}

TEST_F(UdpSocketTest, BindTakesThePortItIsGiven) {
    bool bound = false;
    // Between the two any other program may be given the port; then another one is tried.
    for (int attempt = 0; attempt < 20 && !bound; ++attempt) {
        int port = 0;
        {
            BoundSocket probe;
            port = probe.port();
        }
        UdpSocket socket;
        bound = socket.bind(HostAddress("0.0.0.0"), port);
        EXPECT_TRUE(!bound || ntohs(local_name(system_calls.created.back()).sin_port) == port);
    }
    EXPECT_TRUE(bound);
}

TEST_F(UdpSocketTest, BindToAnotherAddressIsRefusedAndLeavesTheSocketUnbound) {
    UdpSocket socket;
    for (const char* address : {"127.0.0.1", "", "0.0.0.00", "localhost"}) {
        EXPECT_FALSE(socket.bind(HostAddress(address), 0)) << address;
    }
    EXPECT_EQ(local_name(system_calls.created.back()).sin_port, 0);
    EXPECT_TRUE(socket.bind(0));
}

TEST_F(UdpSocketTest, BindToATakenPortIsRefused) {
    BoundSocket first;
    UdpSocket second;
    EXPECT_FALSE(second.bind(first.port()));
}

TEST_F(UdpSocketTest, PendingDatagramsAreSeenWithoutTakingThem) {
    BoundSocket receiver;
    EXPECT_FALSE(receiver->hasPendingDatagrams());
    queue(receiver, "hello");
    EXPECT_TRUE(receiver->hasPendingDatagrams());
    EXPECT_TRUE(receiver->hasPendingDatagrams());
    EXPECT_EQ(read(receiver), "hello");
    EXPECT_FALSE(receiver->hasPendingDatagrams());
}

TEST_F(UdpSocketTest, EmptyDatagramIsPending) {
    BoundSocket receiver;
    queue(receiver, "");
    EXPECT_TRUE(receiver->hasPendingDatagrams());
    EXPECT_EQ(receiver->pendingDatagramSize(), 0);
    EXPECT_EQ(read(receiver), "");
    EXPECT_FALSE(receiver->hasPendingDatagrams());
}

TEST_F(UdpSocketTest, PeekThatReportsAnOversizedDatagramCountsAsPending) {
    BoundSocket receiver;
    fail("recvfrom", EMSGSIZE);
    EXPECT_TRUE(receiver->hasPendingDatagrams());
    fail("recvfrom", ECONNREFUSED);
    EXPECT_FALSE(receiver->hasPendingDatagrams());
}

TEST_F(UdpSocketTest, InterruptedReceivingIsRepeated) {
    BoundSocket receiver;
    queue(receiver, "hello");
    fail("recvfrom", EINTR, 3);
    EXPECT_TRUE(receiver->hasPendingDatagrams());
    EXPECT_EQ(system_calls.count("recvfrom"), 4);
    fail("recvfrom", EINTR, 3);
    EXPECT_EQ(receiver->pendingDatagramSize(), 5);
    fail("recvfrom", EINTR, 3);
    EXPECT_EQ(read(receiver), "hello");
    EXPECT_EQ(system_calls.count("recvfrom"), 12);
}

TEST_F(UdpSocketTest, PendingSizeIsThatOfTheNextDatagram) {
    BoundSocket receiver;
    EXPECT_EQ(receiver->pendingDatagramSize(), -1);
    queue(receiver, std::string(100, 'x'));
    EXPECT_EQ(receiver->pendingDatagramSize(), 100);
    EXPECT_EQ(receiver->pendingDatagramSize(), 100);
}

TEST_F(UdpSocketTest, PendingSizeOf8192AndMoreIsUnknown) {
    for (const std::size_t size : {8192U, 9000U}) {
        BoundSocket receiver;
        queue(receiver, std::string(size, 'x'));
        EXPECT_EQ(receiver->pendingDatagramSize(), -1) << size;
        EXPECT_TRUE(receiver->hasPendingDatagrams());
    }
    BoundSocket receiver;
    queue(receiver, std::string(8191, 'x'));
    EXPECT_EQ(receiver->pendingDatagramSize(), 8191);
}

TEST_F(UdpSocketTest, ReadWithoutADatagramFailsAndClearsTheSender) {
    BoundSocket receiver;
    char data[10];
    HostAddress address("10.0.0.5");
    int port = 7;
    EXPECT_EQ(receiver->readDatagram(data, sizeof data, &address, &port), -1);
    EXPECT_EQ(address.text(), "0.0.0.0");
    EXPECT_EQ(port, 0);
}

TEST_F(UdpSocketTest, ReadIntoASmallBufferCutsTheDatagram) {
    BoundSocket receiver;
    queue(receiver, "hello");
    char data[3] = {'-', '-', '-'};
    EXPECT_EQ(receiver->readDatagram(data, 2), 2);
    EXPECT_EQ(std::string(data, 3), "he-");
    EXPECT_FALSE(receiver->hasPendingDatagrams());
}

TEST_F(UdpSocketTest, ReadOfSizeZeroDiscardsOneDatagram) {
    BoundSocket receiver;
    queue(receiver, "first");
    queue(receiver, "second");
    HostAddress address;
    EXPECT_EQ(receiver->readDatagram(nullptr, 0, &address), 0);
    EXPECT_EQ(address.text(), "127.0.0.1");
    EXPECT_EQ(read(receiver), "second");
    EXPECT_EQ(receiver->readDatagram(nullptr, 0), -1);
}

TEST_F(UdpSocketTest, WriteToWhatIsNoDottedIpv4AddressFailsWithoutSending) {
    for (const char* address : {"localhost", "", "::1", "127.0.0", "127.1"}) {
        EXPECT_EQ(send("x", address, 9), -1) << address;
    }
    EXPECT_EQ(system_calls.count("sendto"), 0);
}

TEST_F(UdpSocketTest, FailedSendIsNotRepeated) {
    fail("sendto", EAGAIN);
    EXPECT_EQ(send("x", "127.0.0.1", 9), -1);
    EXPECT_EQ(errno, EAGAIN);
    fail("sendto", EINTR);
    EXPECT_EQ(send("x", "127.0.0.1", 9), -1);
    EXPECT_EQ(system_calls.count("sendto"), 2);
}

TEST_F(UdpSocketTest, OversizedDatagramFails) {
    EXPECT_EQ(send(std::string(70000, 'x'), "127.0.0.1", 9), -1);
    EXPECT_EQ(errno, EMSGSIZE);
}

TEST_F(UdpSocketTest, EmptyDatagramIsSent) {
    EXPECT_EQ(send("", "127.0.0.1", 9), 0);
}

TEST_F(UdpSocketTest, SocketStaysUsableAfterAFailure) {
    BoundSocket receiver;
    UdpSocket sender;
    EXPECT_EQ(sender.writeDatagram("x", 1, HostAddress("localhost"), receiver.port()), -1);
    EXPECT_EQ(sender.writeDatagram("x", 1, HostAddress("127.0.0.1"), receiver.port()), 1);
    ASSERT_TRUE(receiver->waitForReadyRead(kLongWait));
    EXPECT_EQ(read(receiver), "x");
}

TEST_F(UdpSocketTest, BroadcastOfTheLoopbackNetworkIsPermitted) {
    BoundSocket receiver;
    EXPECT_EQ(send("x", "127.255.255.255", receiver.port()), 1);
    EXPECT_TRUE(receiver->waitForReadyRead(kLongWait));
    EXPECT_EQ(read(receiver), "x");
}

TEST_F(UdpSocketTest, LimitedAndSubnetBroadcastArePermitted) {
    const tests::ChildReport report = tests::run_in_child(CLONE_NEWNET, [] {
        tests::ip("link set lo up");
        tests::ip("link add eth0 type veth peer name peer0");
        tests::ip("addr add 10.0.0.5/24 brd + dev eth0");
        tests::ip("link set peer0 up");
        tests::ip("link set eth0 up");
        tests::ip("route add default dev eth0");
        return std::to_string(send("x", "255.255.255.255", 6454)) + " " +
               std::to_string(send("x", "10.0.0.255", 6454));
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, "1 1");
}

TEST_F(UdpSocketTest, WaitSplitsItsTimeoutIntoSecondsAndMicroseconds) {
    BoundSocket receiver;
    fail("select", EINTR, 2);
    EXPECT_EQ(receiver->select_with_tm(1500, true), -1);
    EXPECT_EQ(errno, EINTR);
    ASSERT_TRUE(system_calls.timeout.has_value());
    EXPECT_EQ(system_calls.timeout->tv_sec, 1);
    EXPECT_EQ(system_calls.timeout->tv_usec, 500000);
    EXPECT_FALSE(receiver->waitForReadyRead(999));
    EXPECT_EQ(system_calls.timeout->tv_sec, 0);
    EXPECT_EQ(system_calls.timeout->tv_usec, 999000);
    EXPECT_EQ(system_calls.count("select"), 2);
}

TEST_F(UdpSocketTest, NegativeTimeoutWaitsWithoutLimit) {
    BoundSocket receiver;
    queue(receiver, "x");
    EXPECT_GT(receiver->select_with_tm(-1, true), 0);
    EXPECT_TRUE(system_calls.timeout_was_null);
    EXPECT_TRUE(receiver->waitForReadyRead(-5000));
    EXPECT_TRUE(system_calls.timeout_was_null);
}

TEST_F(UdpSocketTest, WaitTellsReadableFromWritable) {
    BoundSocket receiver;
    EXPECT_EQ(receiver->select_with_tm(0, true), 0);
    EXPECT_GT(receiver->select_with_tm(0, false), 0);
    queue(receiver, "x");
    EXPECT_GT(receiver->select_with_tm(0, true), 0);
    EXPECT_TRUE(receiver->waitForReadyRead(0));
}

/// Descriptors beyond what select() can watch.
class UdpSocketHighDescriptorTest : public UdpSocketTest {
protected:
    void SetUp() override {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, FD_SETSIZE + 100);
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur <= FD_SETSIZE) {
            GTEST_SKIP() << "this process may not have " << FD_SETSIZE << " descriptors";
        }
        system_calls.lowest_descriptor = FD_SETSIZE;
    }
};

TEST_F(UdpSocketHighDescriptorTest, WaitGivesTheSameResults) {
    BoundSocket receiver;
    ASSERT_EQ(receiver.descriptor(), FD_SETSIZE);
    EXPECT_EQ(receiver->select_with_tm(0, true), 0);
    EXPECT_EQ(receiver->select_with_tm(0, false), 1);
    queue(receiver, "x");
    EXPECT_EQ(receiver->select_with_tm(0, true), 1);
    EXPECT_EQ(receiver->select_with_tm(-7, true), 1);
    EXPECT_EQ(system_calls.poll_timeout, -1);
    EXPECT_EQ(system_calls.count("select"), 0);
}

TEST_F(UdpSocketHighDescriptorTest, WaitHandsTimeoutAndErrorsOn) {
    BoundSocket receiver;
    fail("poll", EINTR);
    EXPECT_EQ(receiver->select_with_tm(1500, true), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(system_calls.poll_timeout, 1500);
    EXPECT_EQ(system_calls.count("poll"), 1);
}

TEST_F(UdpSocketHighDescriptorTest, WaitOnAClosedDescriptorIsAnError) {
    BoundSocket receiver;
    close(receiver.descriptor());
    EXPECT_EQ(receiver->select_with_tm(0, true), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(UdpSocketTest, HighestOrdinaryDescriptorIsWatchedBySelect) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < FD_SETSIZE) {
        GTEST_SKIP() << "this process may not have " << FD_SETSIZE << " descriptors";
    }
    system_calls.lowest_descriptor = FD_SETSIZE - 1;
    BoundSocket receiver;
    ASSERT_EQ(receiver.descriptor(), FD_SETSIZE - 1);
    EXPECT_EQ(receiver->select_with_tm(0, true), 0);
    EXPECT_EQ(system_calls.count("select"), 1);
    EXPECT_EQ(system_calls.count("poll"), 0);
}

}  // namespace
