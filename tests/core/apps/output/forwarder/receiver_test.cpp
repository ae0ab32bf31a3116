// The receive thread against a ring that nobody empties.
#include "receiver.h"

#include <thread>

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

TEST_F(ReceiverTest, WhatTheFullRingCannotTakeIsCountedAndTheOldestStays) {
    DatagramRing ring(4);
    Receiver receiver(sockets_, ring);
    for (unsigned char i = 0; i < 10; ++i) {
        peer_.send(sockets_[0]->port(), {i});
    }
    EXPECT_TRUE(eventually([&] { return sockets_[0]->received() == 10; }));
    receiver.stop();
    EXPECT_EQ(receiver.ring_drops(), 6U);
    const auto kept = ring.wait_readable(100);
    ASSERT_EQ(kept.size(), 4U);
    EXPECT_EQ(kept[0].data[0], 0);
    EXPECT_EQ(kept[3].data[0], 3);
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
