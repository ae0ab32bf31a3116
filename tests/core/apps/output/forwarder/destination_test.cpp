// One destination: what each result of the system's send call leads to. The call is replaced at link time.
#include "destination.h"

#include <cerrno>
#include <cstring>
#include <deque>
#include <vector>

#include <gtest/gtest.h>

#include "udp_peer.h"

namespace {

/// Results for the next calls: a count of messages taken, or a negated error number; the true call when
/// empty.
std::deque<int> scripted_results;
/// Messages offered in each call so far.
std::vector<unsigned> offered;
/// Addresses that error reports are about: a list for each time that the queue of reports is read to its end.
std::deque<std::vector<forwarder::Endpoint>> scripted_reports;

}  // namespace

extern "C" {
int __real_sendmmsg(int socket, mmsghdr* messages, unsigned count, int flags);
int __wrap_sendmmsg(int socket, mmsghdr* messages, unsigned count, int flags);

int __wrap_sendmmsg(int socket, mmsghdr* messages, unsigned count, int flags) {
    offered.push_back(count);
    if (scripted_results.empty()) {
        return __real_sendmmsg(socket, messages, count, flags);
    }
    const int result = scripted_results.front();
    scripted_results.pop_front();
    if (result < 0) {
        errno = -result;
        return -1;
    }
    return result;
}

ssize_t __real_recvfrom(int socket, void* data, size_t size, int flags, sockaddr* from, socklen_t* from_size);
ssize_t __wrap_recvfrom(int socket, void* data, size_t size, int flags, sockaddr* from, socklen_t* from_size);

ssize_t __wrap_recvfrom(int socket, void* data, size_t size, int flags, sockaddr* from,
                        socklen_t* from_size) {
    if ((flags & MSG_ERRQUEUE) == 0 || scripted_reports.empty()) {
        return __real_recvfrom(socket, data, size, flags, from, from_size);
    }
    auto& reports = scripted_reports.front();
    if (reports.empty()) {
        scripted_reports.pop_front();
        errno = EAGAIN;
        return -1;
    }
    const sockaddr_in about = forwarder::to_sockaddr(reports.front());
    reports.erase(reports.begin());
    std::memcpy(from, &about, sizeof about);
    *from_size = sizeof about;
    return 1;
}
}

namespace {

using forwarder::Destination;
using forwarder::Endpoint;
using forwarder::SendVerdict;
using std::chrono::milliseconds;
using Clock = forwarder::Backoff::Clock;

class DestinationTest : public testing::Test {
protected:
    DestinationTest() {
        destination_.assign({0xC0000201, peer_.port()}, {forwarder::kLoopbackAddress, peer_.port()});
        scripted_results.clear();
        scripted_reports.clear();
        offered.clear();
    }

    std::size_t send(std::size_t packets, Clock::time_point now = kNow) {
        return destination_.send(std::vector<iovec>(packets, iovec{packet_.data(), packet_.size()}), now);
    }

    static constexpr Clock::time_point kNow{std::chrono::hours(1)};
    tests::UdpPeer peer_;
    tests::Bytes packet_ = tests::artdmx(3, 7);
    Destination destination_;
};

TEST_F(DestinationTest, AnswersOfNodesAreNotKept) {
    // Unread, they would take the room of the error reports.
    ASSERT_EQ(send(1), 1U);
    sockaddr_in own{};
    socklen_t size = sizeof own;
    ASSERT_EQ(getsockname(destination_.descriptor(), reinterpret_cast<sockaddr*>(&own), &size), 0);
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(peer_.send(ntohs(own.sin_port), packet_));
    }
    char byte = 0;
    EXPECT_EQ(recv(destination_.descriptor(), &byte, 1, MSG_DONTWAIT), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(DestinationTest, PacketsArriveUnchangedAndAreCounted) {
    EXPECT_EQ(send(3), 3U);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(peer_.receive(), packet_);
    }
    EXPECT_EQ(destination_.counters().packets, 3U);
    EXPECT_EQ(destination_.counters().bytes, 3U * 530U);
    EXPECT_EQ(destination_.counters().errors, 0U);
    EXPECT_EQ(destination_.take_error().number, 0);
}

TEST_F(DestinationTest, RestOfAPartlyTakenBatchIsSentToo) {
    scripted_results = {2, 1};
    EXPECT_EQ(send(3), 3U);
    EXPECT_EQ(offered, (std::vector<unsigned>{3, 1}));
    EXPECT_EQ(destination_.counters().packets, 3U);
}

TEST_F(DestinationTest, FullQueueLeavesTheRestToTheCallerWithoutAnError) {
    scripted_results = {1, -EAGAIN};
    EXPECT_EQ(send(3), 1U);
    EXPECT_EQ(destination_.counters().waits, 1U);
    EXPECT_EQ(destination_.counters().errors, 0U);
    scripted_results = {-ENOBUFS};
    EXPECT_EQ(send(2), 0U);
    EXPECT_EQ(send(2), 2U) << "no pause follows";
}

TEST_F(DestinationTest, UnreachableDestinationIsPassedOverUntilItsPauseEnds) {
    scripted_results = {-ENETUNREACH};
    EXPECT_EQ(send(3), 3U);
    EXPECT_EQ(offered.size(), 1U);
    EXPECT_EQ(destination_.counters().errors, 1U);
    EXPECT_EQ(destination_.counters().unsent, 3U);
    EXPECT_EQ(destination_.counters().last_error, ENETUNREACH);

    EXPECT_EQ(send(2, kNow + milliseconds(99)), 2U);
    EXPECT_EQ(offered.size(), 1U) << "nothing is tried during the pause";
    EXPECT_EQ(destination_.counters().unsent, 5U);

    EXPECT_EQ(send(2, kNow + milliseconds(100)), 2U);
    EXPECT_EQ(destination_.counters().packets, 2U);
}

TEST_F(DestinationTest, PauseGrowsWithEachErrorAndStartsOverAfterASuccess) {
    scripted_results = {-EHOSTUNREACH, -EHOSTUNREACH};
    (void)send(1, kNow);
    (void)send(1, kNow + milliseconds(100));
    (void)send(1, kNow + milliseconds(299));
    EXPECT_EQ(offered.size(), 2U) << "the second pause is twice as long";
    (void)send(1, kNow + milliseconds(300));
    scripted_results = {-EHOSTUNREACH};
    (void)send(1, kNow + milliseconds(400));
    (void)send(1, kNow + milliseconds(500));
    EXPECT_EQ(destination_.counters().packets, 2U);
}

TEST_F(DestinationTest, ReportOfAnEarlierRefusalCostsNoPacket) {
    scripted_results = {-ECONNREFUSED};
    EXPECT_EQ(send(2), 2U);
    EXPECT_EQ(destination_.counters().packets, 2U);
    EXPECT_EQ(destination_.counters().errors, 1U);
    EXPECT_EQ(destination_.counters().unsent, 0U);
}

TEST_F(DestinationTest, PacketRefusedAgainAndAgainIsGivenUpAndTheNextOneTried) {
    scripted_results = {-ECONNREFUSED, -ECONNREFUSED, -ECONNREFUSED, -ECONNREFUSED};
    EXPECT_EQ(send(2), 2U);
    EXPECT_EQ(destination_.counters().packets, 1U);
    EXPECT_EQ(destination_.counters().unsent, 1U);
    EXPECT_EQ(destination_.counters().errors, 4U);
}

TEST_F(DestinationTest, GivenUpPacketsAreCountedAndFollowedByAPause) {
    destination_.give_up(5, kNow);
    EXPECT_EQ(destination_.counters().unsent, 5U);
    EXPECT_EQ(destination_.counters().last_error, EAGAIN);
    (void)send(1, kNow + milliseconds(99));
    EXPECT_TRUE(offered.empty());
}

TEST_F(DestinationTest, RetargetedDestinationForgetsThePauseOfTheOneBefore) {
    scripted_results = {-ENETUNREACH};
    (void)send(1);
    destination_.retarget({forwarder::kLoopbackAddress, peer_.port()});
    (void)send(1);
    EXPECT_EQ(destination_.counters().packets, 1U);
}

TEST_F(DestinationTest, LateReportAboutAnotherAddressCostsTheSharedDestinationNoPacket) {
    constexpr Endpoint kDead{0x0A4D0002, 6454};
    destination_.retarget({forwarder::kLoopbackAddress, peer_.port()});
    scripted_results = {-EHOSTUNREACH, -EHOSTUNREACH};
    scripted_reports = {{kDead, kDead}, {kDead}};
    EXPECT_EQ(send(1), 1U);
    EXPECT_EQ(destination_.counters().packets, 1U);
    EXPECT_EQ(destination_.counters().unsent, 0U);
    EXPECT_EQ(destination_.counters().errors, 2U);
    EXPECT_EQ(destination_.take_error().about, kDead) << "the log names the address that the report is about";
    EXPECT_EQ(peer_.receive(), packet_);
}

TEST_F(DestinationTest, ErrorWithoutAReportIsTheSharedDestinationsOwn) {
    const Endpoint here{forwarder::kLoopbackAddress, peer_.port()};
    destination_.retarget(here);
    scripted_results = {-ENETUNREACH};
    EXPECT_EQ(send(1), 1U);
    EXPECT_EQ(offered.size(), 1U);
    EXPECT_EQ(destination_.counters().unsent, 1U);
    EXPECT_EQ(destination_.take_error().about, here);
}

TEST_F(DestinationTest, ReportsAboutAllPacketsThatWaitedForAnotherAddressCostTheSharedDestinationNoPacket) {
    constexpr Endpoint kDead{0x0A4D0002, 6454};
    destination_.retarget({forwarder::kLoopbackAddress, peer_.port()});
    for (int i = 0; i < 200; ++i) {
        scripted_results.push_back(-EHOSTUNREACH);
        scripted_reports.push_back({kDead});
    }
    EXPECT_EQ(send(1), 1U);
    EXPECT_EQ(destination_.counters().packets, 1U);
    EXPECT_EQ(destination_.counters().unsent, 0U);
}

TEST_F(DestinationTest, SharedDestinationDoesNotTryWithoutEndWhileReportsComeIn) {
    constexpr Endpoint kDead{0x0A4D0002, 6454};
    destination_.retarget({forwarder::kLoopbackAddress, peer_.port()});
    for (int i = 0; i < 1000; ++i) {
        scripted_results.push_back(-EHOSTUNREACH);
        scripted_reports.push_back({kDead});
    }
    EXPECT_EQ(send(1), 1U);
    EXPECT_EQ(offered.size(), 256U);
    EXPECT_EQ(destination_.counters().unsent, 1U);
}

TEST_F(DestinationTest, LateReportOnASocketOfItsOwnIsAboutTheDestinationItself) {
    scripted_results = {-EHOSTUNREACH};
    scripted_reports = {{destination_.sent_to()}};
    EXPECT_EQ(send(2), 2U);
    EXPECT_EQ(destination_.counters().unsent, 2U);
    EXPECT_EQ(offered.size(), 1U);
}

TEST_F(DestinationTest, ErrorIsTakenOnce) {
    scripted_results = {-ENETUNREACH};
    (void)send(1);
    EXPECT_EQ(destination_.take_error().number, ENETUNREACH);
    EXPECT_EQ(destination_.take_error().number, 0);
}

TEST_F(DestinationTest, BroadcastIsPermitted) {
    const tests::UdpPeer everywhere("0.0.0.0");
    destination_.assign({0x7FFFFFFF, everywhere.port()}, {0x7FFFFFFF, everywhere.port()});
    EXPECT_EQ(send(1), 1U);
    EXPECT_EQ(destination_.counters().packets, 1U);
    EXPECT_EQ(everywhere.receive(), packet_);
}

TEST(SendVerdictTest, ErrorsFallIntoThreeKinds) {
    EXPECT_EQ(forwarder::verdict_of(EINTR), SendVerdict::Again);
    EXPECT_EQ(forwarder::verdict_of(ECONNREFUSED), SendVerdict::Again);
    EXPECT_EQ(forwarder::verdict_of(EAGAIN), SendVerdict::Full);
    EXPECT_EQ(forwarder::verdict_of(ENOBUFS), SendVerdict::Full);
    for (const int error : {ENETUNREACH, EHOSTUNREACH, EACCES, EPERM, EINVAL, ENETDOWN, EMFILE}) {
        EXPECT_EQ(forwarder::verdict_of(error), SendVerdict::BackOff) << error;
    }
}

}  // namespace
