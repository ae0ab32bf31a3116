// Datagrams on their way from the sockets into the ring, and out of it.
#include "intake.h"

#include <atomic>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/eventually.h"
#include "udp_peer.h"

namespace {

using forwarder::Intake;
using forwarder::ReceiveSocket;
using forwarder::Slot;
using Clock = Intake::Clock;

class IntakeTest : public testing::Test {
protected:
    void SetUp() override {
        for (int i = 0; i < 2; ++i) {
            sockets_.push_back(std::make_unique<ReceiveSocket>());
            ASSERT_FALSE(sockets_.back()->open(tests::free_port()));
        }
    }

    void send(std::size_t socket, unsigned char mark) {
        ASSERT_TRUE(peer_.send(sockets_[socket]->port(), {mark}));
    }

    [[nodiscard]] std::uint64_t received() const { return sockets_[0]->received() + sockets_[1]->received(); }

    /// First bytes of the next `most` datagrams, or of all until none comes for a second or the end has come.
    static std::vector<int> read_marks(Intake& intake, std::size_t most) {
        std::vector<int> marks;
        while (marks.size() < most && !intake.finished()) {
            const auto until = Clock::now() + std::chrono::seconds(1);
            const std::span<Slot> slots = intake.wait(1, until);
            if (!slots.empty()) {
                marks.push_back(slots[0].data[0]);
                intake.release(1);
            } else if (Clock::now() >= until) {
                break;
            }
        }
        return marks;
    }

    tests::UdpPeer peer_;
    std::vector<std::unique_ptr<ReceiveSocket>> sockets_;
};

TEST_F(IntakeTest, DatagramsOfAllPortsComeWithTheirSizeAndTime) {
    Intake intake(sockets_, 8);
    const auto before = Clock::now();
    peer_.send(sockets_[0]->port(), {1, 2, 3});
    const std::span<Slot> first = intake.wait(1, Clock::time_point::max());
    ASSERT_EQ(first.size(), 1U);
    EXPECT_EQ(first[0].size, 3U);
    EXPECT_EQ(first[0].data[2], 3);
    EXPECT_GE(first[0].received, before);
    EXPECT_LE(first[0].received, Clock::now());
    intake.release(1);
    peer_.send(sockets_[1]->port(), tests::Bytes(2000));
    const std::span<Slot> second = intake.wait(1, Clock::time_point::max());
    ASSERT_EQ(second.size(), 1U);
    EXPECT_EQ(second[0].size, 555U) << "a longer datagram is cut, and still too long";
    EXPECT_EQ(sockets_[0]->received(), 1U);
    EXPECT_EQ(sockets_[1]->received(), 1U);
}

TEST_F(IntakeTest, WaitEndsAtItsTimeWithoutADatagram) {
    Intake intake(sockets_, 4);
    const auto begin = Clock::now();
    EXPECT_TRUE(intake.wait(4, begin + std::chrono::milliseconds(5)).empty());
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(5));
    EXPECT_TRUE(intake.wait(4, begin).empty()) << "a time in the past";
    EXPECT_FALSE(intake.finished());
    send(0, 7);
    EXPECT_EQ(intake.wait(4, begin).size(), 1U) << "a datagram counts whatever the time";
}

TEST_F(IntakeTest, MoreIsTakenInThanHandedOutSoThatTheSocketsRunEmpty) {
    Intake intake(sockets_, 1000);
    for (int i = 0; i < 200; ++i) {
        send(0, 1);
    }
    EXPECT_EQ(intake.wait(1, Clock::time_point::max()).size(), 1U);
    EXPECT_EQ(sockets_[0]->received(), 200U);
}

TEST_F(IntakeTest, WhatComesMeanwhileIsTakenInBehindWhatIsInHand) {
    Intake intake(sockets_, 8);
    send(0, 1);
    const std::span<Slot> in_hand = intake.wait(8, Clock::time_point::max());
    send(0, 2);
    send(1, 3);
    intake.take_in();
    EXPECT_EQ(received(), 3U);
    ASSERT_EQ(in_hand.size(), 1U);
    EXPECT_EQ(in_hand[0].data[0], 1);
    intake.release(1);
    EXPECT_THAT(read_marks(intake, 2), testing::UnorderedElementsAre(2, 3));
}

TEST_F(IntakeTest, WhatTheFullRingCannotTakeStaysInTheSocketUntilThereIsRoom) {
    Intake intake(sockets_, 4);
    for (unsigned char i = 0; i < 10; ++i) {
        send(0, i);
    }
    for (int look = 0; look < 3; ++look) {
        EXPECT_EQ(intake.wait(10, Clock::time_point::max()).size(), 4U)
            << "what is in hand stays until it is released";
        EXPECT_EQ(received(), 4U);
    }
    EXPECT_THAT(read_marks(intake, 10), testing::ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
    EXPECT_EQ(received(), 10U);
    EXPECT_EQ(sockets_[0]->kernel_drops(), 0U);
}

TEST_F(IntakeTest, DatagramsAreHandedOutInPiecesAtTheEndOfTheMemory) {
    Intake intake(sockets_, 4);
    for (unsigned char i = 0; i < 3; ++i) {
        send(0, i);
    }
    EXPECT_THAT(read_marks(intake, 3), testing::ElementsAre(0, 1, 2));
    for (unsigned char i = 3; i < 6; ++i) {
        send(0, i);
    }
    const std::span<Slot> last = intake.wait(100, Clock::time_point::max());
    ASSERT_EQ(last.size(), 1U);
    EXPECT_EQ(last[0].data[0], 3);
    intake.release(1);
    const std::span<Slot> first = intake.wait(100, Clock::time_point::max());
    ASSERT_EQ(first.size(), 2U);
    EXPECT_EQ(first[0].data[0], 4);
    EXPECT_EQ(first[1].data[0], 5);
}

TEST_F(IntakeTest, PortThatFillsTheRingDoesNotKeepTheOthersOut) {
    for (int i = 0; i < 100; ++i) {
        send(0, 0);
        send(1, 1);
    }
    Intake intake(sockets_, 2);
    std::vector<int> marks = read_marks(intake, 200);
    ASSERT_EQ(marks.size(), 200U);
    marks.resize(10);
    EXPECT_THAT(marks, testing::Contains(0));
    EXPECT_THAT(marks, testing::Contains(1));
}

TEST_F(IntakeTest, StopWakesAWaitAndEndsIt) {
    Intake intake(sockets_, 4);
    std::thread stopper([&] { intake.stop(); });
    while (!intake.finished()) {
        EXPECT_TRUE(intake.wait(4, Clock::time_point::max()).empty());
    }
    stopper.join();
    intake.stop();
    EXPECT_TRUE(intake.wait(4, Clock::time_point::max()).empty()) << "and it stays ended";
    EXPECT_TRUE(intake.finished());
}

TEST_F(IntakeTest, AllThatHasArrivedBeforeTheStopIsHandedOut) {
    Intake intake(sockets_, 4);
    for (unsigned char i = 0; i < 100; ++i) {
        send(i % 2, i);
    }
    intake.stop();
    EXPECT_FALSE(intake.finished());
    EXPECT_EQ(read_marks(intake, 1000).size(), 100U);
    EXPECT_TRUE(intake.finished());
    EXPECT_EQ(intake.left_behind(), 0U);
}

TEST_F(IntakeTest, WhatFindsNoRoomInTheTimeForTheEndIsCounted) {
    Intake intake(sockets_, 4, std::chrono::milliseconds(10));
    for (unsigned char i = 0; i < 10; ++i) {
        send(i % 2, i);
    }
    intake.stop();
    EXPECT_TRUE(
        eventually([&] { return intake.wait(4, Clock::now()).size() == 4 && intake.left_behind() == 6; }));
    EXPECT_FALSE(intake.finished()) << "what is in the ring is still to be sent";
    EXPECT_EQ(read_marks(intake, 100).size(), 4U);
    EXPECT_TRUE(intake.finished());
    EXPECT_EQ(received(), 4U);
}

TEST_F(IntakeTest, SenderThatGoesOnForEverDoesNotHoldUpTheEnd) {
    Intake intake(sockets_, 64);
    std::atomic<bool> ended = false;
    std::thread sender([&] {
        while (!ended) {
            peer_.send(sockets_[0]->port(), {1});
        }
    });
    EXPECT_EQ(read_marks(intake, 10).size(), 10U);
    intake.stop();
    while (!intake.finished()) {
        intake.release(intake.wait(64, Clock::time_point::max()).size());
    }
    const std::uint64_t before = received();
    EXPECT_TRUE(eventually([&] { return sockets_[0]->kernel_drops() > 0; })) << "later ones are refused";
    EXPECT_EQ(received(), before);
    EXPECT_EQ(intake.left_behind(), 0U);
    ended = true;
    sender.join();
}

}  // namespace
