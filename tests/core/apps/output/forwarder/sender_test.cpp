// The send thread with destinations whose queue is full, or that cannot be reached, when the test says so.
#include "sender.h"

#include <cerrno>
#include <mutex>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "handed_over.h"
#include "support/eventually.h"
#include "udp_peer.h"

namespace {

/// Destination ports whose queue is full. Guarded by `script_mutex`.
std::set<std::uint16_t> full_ports;
/// Destination addresses that have no route. Guarded by `script_mutex`.
std::set<std::uint32_t> dead_addresses;
std::mutex script_mutex;

}  // namespace

extern "C" {
int __real_sendmmsg(int socket, mmsghdr* messages, unsigned count, int flags);
int __wrap_sendmmsg(int socket, mmsghdr* messages, unsigned count, int flags);

int __wrap_sendmmsg(int socket, mmsghdr* messages, unsigned count, int flags) {
    sockaddr_in to{};
    std::memcpy(&to, messages[0].msg_hdr.msg_name, sizeof to);
    {
        const std::scoped_lock guard(script_mutex);
        if (full_ports.contains(ntohs(to.sin_port))) {
            errno = EAGAIN;
            return -1;
        }
        if (dead_addresses.contains(ntohl(to.sin_addr.s_addr))) {
            errno = ENETUNREACH;
            return -1;
        }
    }
    return __real_sendmmsg(socket, messages, count, flags);
}
}

namespace {

using forwarder::Sender;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using tests::artdmx;
using tests::Bytes;
using tests::UdpPeer;

/// No test waits this long; what happens within it happens for another reason than its end.
constexpr Sender::Times kForEver{std::chrono::hours(1), std::chrono::hours(1)};
/// The same for what is over before the queue has room again: an end that waited would wait as long.
constexpr Sender::Times kUntilTheEnd{std::chrono::hours(1), std::chrono::milliseconds(1)};
constexpr Sender::Times kNotAtAll{std::chrono::milliseconds(1), std::chrono::milliseconds(1)};

class SenderTest : public testing::Test {
protected:
    SenderTest() {
        const std::scoped_lock guard(script_mutex);
        full_ports.clear();
        dead_addresses.clear();
    }
    static void set_full(const UdpPeer& peer, bool full) {
        const std::scoped_lock guard(script_mutex);
        full ? (void)full_ports.insert(peer.port()) : (void)full_ports.erase(peer.port());
    }

    /// Hands all datagrams over at once, as received together some time ago.
    void arrive(const std::vector<Bytes>& datagrams, std::chrono::milliseconds ago = {}) {
        source_.arrive(datagrams, std::chrono::steady_clock::now() - ago);
    }

    static Bytes to(const UdpPeer& peer, unsigned char mark) {
        return tests::datagram("127.0.0.1", peer.port(), artdmx(0, 0, mark));
    }

    static forwarder::Destination::Counters counters(const Sender& sender, const UdpPeer& peer) {
        for (std::size_t i = 0; i < sender.destinations().size(); ++i) {
            if (sender.destinations()[i].target().port == peer.port()) {
                return sender.destinations()[i].counters();
            }
        }
        return {};
    }

    tests::HandedOver source_;
    forwarder::Options options_;
    forwarder::LogQueue log_;
    UdpPeer slow_;
    UdpPeer other_;
};

TEST_F(SenderTest, OthersAreServedWhileOneQueueStaysFull) {
    Sender sender(source_, options_, log_, nullptr, kUntilTheEnd);
    set_full(slow_, true);
    arrive({to(slow_, 1), to(other_, 1)});
    EXPECT_EQ(other_.receive(), artdmx(0, 0, 1)) << "of the same batch";
    for (unsigned char mark = 2; mark < 50; ++mark) {
        arrive({to(slow_, mark), to(other_, mark)});
        ASSERT_EQ(other_.receive(), artdmx(0, 0, mark)) << "of later ones";
    }
    EXPECT_FALSE(slow_.pending());
    EXPECT_EQ(counters(sender, slow_).unsent, 0U);
}

TEST_F(SenderTest, OrderIsKeptAcrossAWait) {
    Sender sender(source_, options_, log_, nullptr, kForEver);
    set_full(slow_, true);
    arrive({to(slow_, 1), to(slow_, 2), to(slow_, 3)});
    EXPECT_TRUE(eventually([&] { return counters(sender, slow_).waits > 0; }));
    arrive({to(slow_, 4), to(slow_, 5)});
    EXPECT_TRUE(eventually([&] { return sender.accepted() == 5; }));
    set_full(slow_, false);
    arrive({to(slow_, 6)});
    for (unsigned char mark = 1; mark <= 6; ++mark) {
        ASSERT_EQ(slow_.receive(), artdmx(0, 0, mark));
    }
    // Counted once the system has taken them, so after they arrive.
    EXPECT_TRUE(eventually([&] { return counters(sender, slow_).packets == 6; }));
    EXPECT_EQ(counters(sender, slow_).errors, 0U);
}

TEST_F(SenderTest, WaitingPacketsGoOutWithoutAnotherDatagramOnceThereIsRoom) {
    Sender sender(source_, options_, log_, nullptr, kForEver);
    set_full(slow_, true);
    arrive({to(slow_, 1)});
    EXPECT_TRUE(eventually([&] { return counters(sender, slow_).waits > 1; })) << "it is tried again";
    set_full(slow_, false);
    EXPECT_EQ(slow_.receive(), artdmx(0, 0, 1));
}

TEST_F(SenderTest, ManyPacketsOfOneMomentDoNotKeepTheSourceFromBeingLookedAt) {
    options_.tee = forwarder::Endpoint{forwarder::kLoopbackAddress, slow_.port()};
    Sender sender(source_, options_, log_, nullptr, kForEver);
    arrive(std::vector<Bytes>(64, to(other_, 1)));
    EXPECT_TRUE(eventually([&] { return source_.looks() > 0; }))
        << "with the copies, twice as many are sent as came";
}

TEST_F(SenderTest, WaitingPacketsAreBoundedAndTheNewestAreKept) {
    constexpr unsigned kMost = forwarder::Backlog::kMostOfOne;
    Sender sender(source_, options_, log_, nullptr, kUntilTheEnd);
    set_full(slow_, true);
    arrive(std::vector<Bytes>(10, to(slow_, 1)));
    arrive(std::vector<Bytes>(kMost - 1, to(slow_, 2)));
    arrive({to(slow_, 3)});
    EXPECT_TRUE(eventually([&] { return counters(sender, slow_).unsent == 10; }));
    arrive({to(other_, 9)});
    EXPECT_EQ(other_.receive(), artdmx(0, 0, 9));
    EXPECT_EQ(counters(sender, slow_).unsent, 10U);
}

TEST_F(SenderTest, QueueThatStaysFullIsGivenUpAndLeftAloneForAWhile) {
    Sender sender(source_, options_, log_, nullptr, kNotAtAll);
    set_full(slow_, true);
    arrive({to(slow_, 1), to(slow_, 2), to(slow_, 3)});
    EXPECT_TRUE(eventually([&] { return counters(sender, slow_).unsent == 3; }));
    EXPECT_EQ(counters(sender, slow_).last_error, EAGAIN);
    EXPECT_EQ(counters(sender, slow_).errors, 1U);
    arrive({to(other_, 1)});
    EXPECT_EQ(other_.receive(), artdmx(0, 0, 1));
    const std::string name = forwarder::to_text({forwarder::kLoopbackAddress, slow_.port()});
    EXPECT_THAT(log_.take(),
                testing::ElementsAre("sending to " + name +
                                     ": Resource temporarily unavailable; 3 packets not sent so far"));
}

TEST_F(SenderTest, CopiesThatWaitHoldUpNobody) {
    options_.tee = forwarder::Endpoint{forwarder::kLoopbackAddress, slow_.port()};
    Sender sender(source_, options_, log_, nullptr, kForEver);
    set_full(slow_, true);
    arrive({to(other_, 1)});
    EXPECT_EQ(other_.receive(), artdmx(0, 0, 1));
    arrive({to(other_, 2)});
    EXPECT_EQ(other_.receive(), artdmx(0, 0, 2));
    set_full(slow_, false);
    EXPECT_EQ(slow_.receive(), to(other_, 1));
    EXPECT_EQ(slow_.receive(), to(other_, 2));
}

TEST_F(SenderTest, EndWaitsForWhatWaitsAndGivesTheRestUp) {
    Sender sender(source_, options_, log_, nullptr, kForEver);
    set_full(slow_, true);
    arrive({to(slow_, 1)});
    EXPECT_TRUE(eventually([&] { return counters(sender, slow_).waits > 0; }));
    source_.stop();
    set_full(slow_, false);
    sender.join();
    EXPECT_EQ(counters(sender, slow_).packets, 1U);
    EXPECT_EQ(slow_.receive(), artdmx(0, 0, 1));
}

TEST_F(SenderTest, EndIsNotHeldUpByAQueueThatStaysFull) {
    Sender sender(source_, options_, log_, nullptr, kUntilTheEnd);
    set_full(slow_, true);
    arrive({to(slow_, 1)});
    source_.stop();
    sender.join();
    EXPECT_EQ(counters(sender, slow_).unsent, 1U);
    EXPECT_EQ(log_.take().size(), 1U) << "the log tells of it";
}

TEST_F(SenderTest, ErrorsOfManyDestinationsAtOnceGiveTenLinesAndTheRestIsToldOfLater) {
    Sender sender(source_, options_, log_, nullptr);
    std::vector<Bytes> datagrams;
    for (unsigned i = 1; i <= 30; ++i) {
        {
            const std::scoped_lock guard(script_mutex);
            dead_addresses.insert(0x0A000000 + i);
        }
        datagrams.push_back(tests::datagram("10.0.0." + std::to_string(i), 6454));
    }
    arrive(datagrams);
    arrive({to(other_, 1)});
    EXPECT_EQ(other_.receive(), artdmx(0, 0, 1));
    const auto lines = log_.take();
    ASSERT_EQ(lines.size(), 10U);
    EXPECT_THAT(lines[0], AllOf(HasSubstr("sending to 10.0.0."), HasSubstr("Network is unreachable"),
                                EndsWith("1 packets not sent so far")));
    const auto next_line = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    EXPECT_TRUE(eventually([&] { return std::chrono::steady_clock::now() >= next_line; }));
    {
        const std::scoped_lock guard(script_mutex);
        dead_addresses.insert(0x0A000100);
    }
    arrive({tests::datagram("10.0.1.0", 6454)});
    std::vector<std::string> later;
    EXPECT_TRUE(eventually([&] { return !(later = log_.take()).empty(); }));
    EXPECT_THAT(later, testing::ElementsAre(EndsWith("(20 similar lines suppressed)")));
}

TEST_F(SenderTest, RejectedDatagramsGiveFiveLinesAtOnce) {
    Sender sender(source_, options_, log_, nullptr);
    std::vector<Bytes> datagrams(20, Bytes(100));
    datagrams.push_back(to(other_, 1));
    arrive(datagrams);
    EXPECT_EQ(other_.receive(), artdmx(0, 0, 1));
    const auto lines = log_.take();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0], "rejected a datagram of 100 bytes: size");
    EXPECT_EQ(sender.rejected(artnet::ForwardingFault::Size), 20U);
}

TEST_F(SenderTest, RejectedPacketIsChargedToTheDestinationThatItsHeaderNames) {
    Sender sender(source_, options_, log_, nullptr);
    Bytes wrong = to(slow_, 1);
    wrong[artnet::kForwardingHeaderSize] = 'X';
    arrive({wrong, wrong, to(slow_, 2), to(other_, 1)});
    EXPECT_EQ(slow_.receive(), artdmx(0, 0, 2));
    EXPECT_EQ(other_.receive(), artdmx(0, 0, 1));
    EXPECT_EQ(counters(sender, slow_).rejected, 2U);
    EXPECT_EQ(counters(sender, slow_).packets, 1U);
    EXPECT_EQ(counters(sender, other_).rejected, 0U);
    EXPECT_EQ(sender.rejected(artnet::ForwardingFault::Identifier), 2U) << "the total counts them, too";
}

TEST_F(SenderTest, PacedPacketsThatAreStillWaitingAfterTheTimeForTheEndCountAsUnsent) {
    options_.outlet.pace = std::chrono::hours(1);
    Sender sender(source_, options_, log_, nullptr, kUntilTheEnd);
    arrive({to(other_, 1), tests::datagram("127.0.0.1", other_.port(), artdmx(1)),
            tests::datagram("127.0.0.1", other_.port(), artdmx(2))});
    EXPECT_EQ(other_.receive(), artdmx(0, 0, 1));
    source_.stop();
    sender.join();
    EXPECT_FALSE(other_.pending());
    EXPECT_EQ(counters(sender, other_).packets, 1U);
    EXPECT_EQ(counters(sender, other_).unsent, 2U);
    EXPECT_EQ(sender.outlet()->counters().dropped, 2U);
}

TEST_F(SenderTest, PacedPacketsGoThroughTheQueueOfADestinationThatIsFull) {
    options_.outlet.pace = std::chrono::nanoseconds(1);
    options_.outlet.sequence = true;
    Sender sender(source_, options_, log_, nullptr, kForEver);
    set_full(slow_, true);
    for (unsigned universe = 0; universe < 3; ++universe) {
        arrive({tests::datagram("127.0.0.1", slow_.port(), artdmx(universe))});
    }
    EXPECT_TRUE(eventually([&] { return counters(sender, slow_).waits > 1; }));
    set_full(slow_, false);
    for (unsigned universe = 0; universe < 3; ++universe) {
        EXPECT_EQ(slow_.receive(), artdmx(universe, 0, 1));
    }
}

TEST_F(SenderTest, AGroupThatIsNotHandedOutYetIsNotEndedByTheClock) {
    options_.outlet.sync = true;
    Sender sender(source_, options_, log_, nullptr);
    // More than are handled at a time, and late: the gap is over long before the second part is looked at.
    std::vector<Bytes> datagrams;
    for (unsigned universe = 0; universe < forwarder::Destination::kMostPackets + 4; ++universe) {
        datagrams.push_back(tests::datagram("127.0.0.1", other_.port(), artdmx(universe)));
    }
    arrive(datagrams, std::chrono::hours(1));
    source_.stop();
    sender.join();
    EXPECT_EQ(counters(sender, other_).packets, datagrams.size() + 1);
    EXPECT_EQ(sender.outlet()->counters().syncs, 1U);
}

TEST_F(SenderTest, DestinationsThatShareASocketAreTrimmedAndCountedAsNotFollowed) {
    options_.outlet.trim = true;
    options_.outlet.sequence = true;
    Sender sender(source_, options_, log_, nullptr);
    Bytes small = artdmx(0, 0, 77);
    small[16] = 0;
    small[17] = 2;
    std::vector<Bytes> datagrams;
    for (std::size_t i = 0; i < forwarder::DestinationTable::kMostDestinations; ++i) {
        const std::string address = "127.1." + std::to_string(i / 200) + "." + std::to_string(1 + i % 200);
        datagrams.push_back(tests::datagram(address, other_.port(), small));
    }
    datagrams.push_back(tests::datagram("127.0.0.1", other_.port(), small));
    arrive(datagrams);
    EXPECT_EQ(other_.receive(), Bytes(small.begin(), small.begin() + 20)) << "its number is its own";
    EXPECT_EQ(sender.outlet()->counters().untracked, 1U);
}

}  // namespace
