// What waits for a full queue: order, bounds and giving up, with a send call that this test answers.
#include "backlog.h"

#include <cerrno>
#include <deque>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "udp_peer.h"

namespace {

/// Packets that the system takes before its queue is full; per call only, it never drains by itself.
unsigned room = 0;
/// Sequence marks of the packets taken, in order.
std::vector<int> taken;

}  // namespace

extern "C" int __wrap_sendmmsg(int /*socket*/, mmsghdr* messages, unsigned count, int /*flags*/) {
    const unsigned taking = std::min(count, room);
    if (taking == 0) {
        errno = EAGAIN;
        return -1;
    }
    for (unsigned i = 0; i < taking; ++i) {
        const auto* bytes = static_cast<const unsigned char*>(messages[i].msg_hdr.msg_iov->iov_base);
        taken.push_back(bytes[0] + 256 * bytes[1]);
    }
    room -= taking;
    return static_cast<int>(taking);
}

namespace {

using forwarder::Backlog;
using forwarder::Destination;
using std::chrono::milliseconds;
using testing::ElementsAre;
using Clock = Backlog::Clock;

constexpr Clock::time_point kNow{std::chrono::hours(1)};

class BacklogTest : public testing::Test {
protected:
    BacklogTest() {
        room = 0;
        taken.clear();
        destination_.assign({1, 6454}, {1, 6454});
        other_.assign({2, 6454}, {2, 6454});
    }

    /// Adds packets with these marks, first to last.
    void add(Destination& destination, int first, int last, Clock::time_point now = kNow) {
        for (int mark = first; mark <= last; ++mark) {
            std::array<unsigned char, 530> bytes{static_cast<unsigned char>(mark),
                                                 static_cast<unsigned char>(mark >> 8)};
            const iovec packet{bytes.data(), bytes.size()};
            backlog_.add(destination, {&packet, 1}, now);
        }
    }

    Backlog backlog_{milliseconds(20)};
    Destination destination_;
    Destination other_;
};

TEST_F(BacklogTest, EmptyBacklogHasNothingToDo) {
    EXPECT_TRUE(backlog_.empty());
    EXPECT_EQ(backlog_.next_retry(), Clock::time_point::max());
    backlog_.add(destination_, {}, kNow);
    EXPECT_TRUE(backlog_.empty());
    EXPECT_FALSE(backlog_.holds(destination_));
}

TEST_F(BacklogTest, PacketsAreCopiedAndGoInOrderAsFarAsThereIsRoom) {
    add(destination_, 1, 3);
    EXPECT_TRUE(backlog_.holds(destination_));
    EXPECT_FALSE(backlog_.holds(other_));
    EXPECT_EQ(backlog_.next_retry(), kNow + Backlog::kRetryAfter);
    room = 2;
    EXPECT_THAT(backlog_.retry(kNow), ElementsAre(&destination_));
    EXPECT_THAT(taken, ElementsAre(1, 2));
    EXPECT_TRUE(backlog_.holds(destination_));
    add(destination_, 4, 4);
    room = 10;
    backlog_.retry(kNow);
    EXPECT_THAT(taken, ElementsAre(1, 2, 3, 4));
    EXPECT_TRUE(backlog_.empty());
    EXPECT_EQ(destination_.counters().packets, 4U);
    EXPECT_EQ(destination_.counters().bytes, 4U * 530U);
}

TEST_F(BacklogTest, ABatchGoesInOneRetryAndTheNextIsDueAtOnceWhileThereIsRoom) {
    constexpr int kBatch = Backlog::kMostAtOnce;
    add(destination_, 0, 3 * kBatch - 1);
    room = 2 * kBatch + 1;
    backlog_.retry(kNow);
    EXPECT_EQ(taken.size(), std::size_t{kBatch});
    EXPECT_EQ(backlog_.next_retry(), kNow);
    backlog_.retry(kNow);
    EXPECT_EQ(taken.size(), std::size_t{2 * kBatch});
    EXPECT_EQ(backlog_.next_retry(), kNow);
    backlog_.retry(kNow);
    EXPECT_EQ(taken.size(), std::size_t{2 * kBatch + 1});
    EXPECT_EQ(backlog_.next_retry(), kNow + Backlog::kRetryAfter) << "the queue is full";
    EXPECT_TRUE(std::ranges::is_sorted(taken));
}

TEST_F(BacklogTest, OneThatHasMuchDoesNotKeepTheOthersWaiting) {
    add(destination_, 0, 999);
    add(other_, 1000, 1000);
    room = 2000;
    backlog_.retry(kNow);
    backlog_.retry(kNow);
    EXPECT_THAT(taken, testing::Contains(1000));
}

TEST_F(BacklogTest, RoomThatDestinationsShareGoesToEachInTurn) {
    add(destination_, 0, 2);
    add(other_, 100, 102);
    for (int i = 0; i < 4; ++i) {
        room = 1;
        backlog_.retry(kNow);
    }
    EXPECT_THAT(taken, testing::UnorderedElementsAre(0, 1, 100, 101));
}

TEST_F(BacklogTest, OldestPacketsOfTheSameDestinationGoWhenThereAreTooMany) {
    constexpr int kMost = Backlog::kMostOfOne;
    add(other_, 5000, 5000);
    add(destination_, 0, kMost + 99);
    EXPECT_EQ(destination_.counters().unsent, 100U);
    EXPECT_EQ(other_.counters().unsent, 0U);
    room = kMost + 1;
    while (!backlog_.empty()) {
        backlog_.retry(kNow);
    }
    std::erase(taken, 5000);
    ASSERT_EQ(taken.size(), std::size_t{kMost});
    EXPECT_EQ(taken.front(), 100);
    EXPECT_EQ(taken.back(), kMost + 99);
    EXPECT_TRUE(std::ranges::is_sorted(taken));
}

TEST_F(BacklogTest, AllDestinationsTogetherAreBoundedToo) {
    std::deque<Destination> many(5);
    for (std::size_t i = 0; i < 4; ++i) {
        add(many[i], 1, Backlog::kMostOfOne);
    }
    add(many[4], 1, 1);
    EXPECT_EQ(many[4].counters().unsent, 1U) << "no room, and no packet of its own to replace";
    EXPECT_FALSE(backlog_.holds(many[4]));
    add(many[0], 9, 9);
    EXPECT_EQ(many[0].counters().unsent, 1U);
}

TEST_F(BacklogTest, DestinationThatTakesNothingForThePatienceIsGivenUp) {
    add(destination_, 1, 3);
    backlog_.retry(kNow + milliseconds(19));
    EXPECT_TRUE(backlog_.holds(destination_));
    EXPECT_EQ(destination_.counters().errors, 0U);
    backlog_.retry(kNow + milliseconds(20));
    EXPECT_TRUE(backlog_.empty());
    EXPECT_EQ(destination_.counters().unsent, 3U);
    EXPECT_EQ(destination_.counters().errors, 1U);
    EXPECT_EQ(destination_.take_error().number, EAGAIN);
}

TEST_F(BacklogTest, ProgressRenewsThePatience) {
    add(destination_, 1, 3);
    room = 1;
    backlog_.retry(kNow + milliseconds(15));
    backlog_.retry(kNow + milliseconds(34));
    EXPECT_TRUE(backlog_.holds(destination_));
    backlog_.retry(kNow + milliseconds(35));
    EXPECT_EQ(destination_.counters().unsent, 2U);
    EXPECT_EQ(destination_.counters().packets, 1U);
}

TEST_F(BacklogTest, EverythingCanBeGivenUpAtOnce) {
    add(destination_, 1, 2);
    add(other_, 3, 3);
    EXPECT_THAT(backlog_.give_up(kNow), testing::UnorderedElementsAre(&destination_, &other_));
    EXPECT_TRUE(backlog_.empty());
    EXPECT_EQ(destination_.counters().unsent, 2U);
    EXPECT_EQ(other_.counters().unsent, 1U);
}

}  // namespace
