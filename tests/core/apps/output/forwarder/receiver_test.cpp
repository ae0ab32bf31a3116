// The receive thread, with a ring that is read by the test alone.
#include "receiver.h"

#include <atomic>
#include <limits>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/eventually.h"
#include "udp_peer.h"

namespace {

using forwarder::DatagramRing;
using forwarder::Receiver;
using forwarder::ReceiveSocket;

class ReceiverTest : public testing::Test {
protected:
    void SetUp() override {
        for (int i = 0; i < 2; ++i) {
            sockets_.push_back(std::make_unique<ReceiveSocket>());
            ASSERT_FALSE(sockets_.back()->open(tests::free_port()));
        }
    }

    tests::UdpPeer peer_;
    std::vector<std::unique_ptr<ReceiveSocket>> sockets_;
};

TEST_F(ReceiverTest, DatagramsOfAllPortsReachTheRingWithTheirSizeAndTime) {
    DatagramRing ring(8);
    Receiver receiver(sockets_, ring);
    const auto before = std::chrono::steady_clock::now();
    peer_.send(sockets_[0]->port(), {1, 2, 3});
    const auto first = ring.wait_readable(1);
    ASSERT_EQ(first.size(), 1U);
    EXPECT_EQ(first[0].size, 3U);
    EXPECT_EQ(first[0].data[2], 3);
    EXPECT_GE(first[0].received, before);
    ring.release(1);
    peer_.send(sockets_[1]->port(), tests::Bytes(2000));
    const auto second = ring.wait_readable(1);
    ASSERT_EQ(second.size(), 1U);
    EXPECT_EQ(second[0].size, 555U) << "a longer datagram is cut, and still too long";
    EXPECT_EQ(sockets_[0]->received(), 1U);
    EXPECT_EQ(sockets_[1]->received(), 1U);
}

/// First bytes of what comes out of the ring until it is closed, or of the next `most`.
std::vector<int> read_marks(DatagramRing& ring, std::size_t most) {
    std::vector<int> marks;
    while (marks.size() < most) {
        const auto slots =
            ring.wait_readable(1, std::chrono::steady_clock::now() + tests::UdpPeer::kDeadline);
        if (slots.empty()) {
            break;
        }
        marks.push_back(slots[0].data[0]);
        ring.release(1);
    }
    return marks;
}

TEST_F(ReceiverTest, WhatTheFullRingCannotTakeStaysInTheSocketUntilThereIsRoom) {
    DatagramRing ring(4);
    Receiver receiver(sockets_, ring);
    for (unsigned char i = 0; i < 10; ++i) {
        ASSERT_TRUE(peer_.send(sockets_[0]->port(), {i}));
    }
    EXPECT_TRUE(eventually([&] { return sockets_[0]->received() == 4; }));
    // Nothing but room in the ring wakes the thread from here on.
    EXPECT_THAT(read_marks(ring, 10), testing::ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
    EXPECT_EQ(sockets_[0]->received(), 10U);
    EXPECT_EQ(sockets_[0]->kernel_drops(), 0U);
}

TEST_F(ReceiverTest, OtherSocketsAreServedAfterAWaitForRoomToo) {
    DatagramRing ring(2);
    Receiver receiver(sockets_, ring);
    for (unsigned char i = 0; i < 4; ++i) {
        ASSERT_TRUE(peer_.send(sockets_[i % 2]->port(), {i}));
    }
    EXPECT_THAT(read_marks(ring, 4), testing::UnorderedElementsAre(0, 1, 2, 3));
}

TEST_F(ReceiverTest, PortThatFillsTheRingDoesNotKeepTheOthersOut) {
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(peer_.send(sockets_[0]->port(), {0}));
        ASSERT_TRUE(peer_.send(sockets_[1]->port(), {1}));
    }
    DatagramRing ring(2);
    Receiver receiver(sockets_, ring);
    std::vector<int> marks = read_marks(ring, 200);
    ASSERT_EQ(marks.size(), 200U);
    // A turn is 32 batches of at most two, as many as the ring holds.
    marks.resize(65);
    EXPECT_THAT(marks, testing::Contains(0));
    EXPECT_THAT(marks, testing::Contains(1));
}

TEST_F(ReceiverTest, StopWaitsForRoomSoThatAllThatHasArrivedIsTakenIn) {
    DatagramRing ring(4);
    Receiver receiver(sockets_, ring);
    for (unsigned char i = 0; i < 100; ++i) {
        ASSERT_TRUE(peer_.send(sockets_[i % 2]->port(), {i}));
    }
    std::vector<int> marks;
    std::thread reader([&] { marks = read_marks(ring, 1000); });
    receiver.stop();
    reader.join();
    EXPECT_EQ(marks.size(), 100U);
    EXPECT_EQ(receiver.left_behind(), 0U);
}

TEST_F(ReceiverTest, WhatFindsNoRoomInTheTimeForTheEndIsCounted) {
    DatagramRing ring(4);
    Receiver receiver(sockets_, ring, std::chrono::milliseconds(10));
    for (unsigned char i = 0; i < 10; ++i) {
        ASSERT_TRUE(peer_.send(sockets_[i % 2]->port(), {i}));
    }
    receiver.stop();
    EXPECT_EQ(receiver.left_behind(), 6U);
    EXPECT_EQ(read_marks(ring, 100).size(), 4U) << "the ring is closed";
    EXPECT_EQ(sockets_[0]->received() + sockets_[1]->received(), 4U);
}

TEST_F(ReceiverTest, SenderThatGoesOnForEverDoesNotHoldUpTheStop) {
    DatagramRing ring(64);
    Receiver receiver(sockets_, ring);
    std::atomic<bool> ended = false;
    std::thread reader([&] { (void)read_marks(ring, std::numeric_limits<std::size_t>::max()); });
    std::thread sender([&] {
        while (!ended) {
            peer_.send(sockets_[0]->port(), {1});
        }
    });
    EXPECT_TRUE(eventually([&] { return sockets_[0]->received() > 0; }));
    receiver.stop();
    const std::uint64_t received = sockets_[0]->received();
    EXPECT_TRUE(eventually([&] { return sockets_[0]->kernel_drops() > 0; })) << "later ones are refused";
    EXPECT_EQ(sockets_[0]->received(), received);
    EXPECT_EQ(receiver.left_behind(), 0U);
    ended = true;
    sender.join();
    reader.join();
}

TEST_F(ReceiverTest, StopTakesInWhatHasArrivedAndClosesTheRing) {
    DatagramRing ring(8);
    Receiver receiver(sockets_, ring);
    peer_.send(sockets_[0]->port(), {1});
    peer_.send(sockets_[1]->port(), {2});
    receiver.stop();
    EXPECT_EQ(ring.wait_readable(8).size(), 2U);
    ring.release(2);
    EXPECT_TRUE(ring.wait_readable(8).empty());
}

}  // namespace
