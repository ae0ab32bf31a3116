// The ring between the threads: bounds, order, waiting and closing.
#include "datagram_ring.h"

#include <thread>

#include <gtest/gtest.h>

namespace {

using forwarder::DatagramRing;
using forwarder::Slot;

void write_sizes(DatagramRing& ring, std::size_t first, std::size_t count) {
    while (count > 0) {
        const std::span<Slot> free = ring.writable(count);
        ASSERT_FALSE(free.empty());
        for (Slot& slot : free) {
            slot.size = first++;
        }
        ring.publish(free.size());
        count -= free.size();
    }
}

TEST(DatagramRingTest, EmptyRingIsWritableToItsCapacityAndNoFurther) {
    DatagramRing ring(4);
    EXPECT_EQ(ring.writable(100).size(), 4U);
    EXPECT_EQ(ring.writable(3).size(), 3U);
}

TEST(DatagramRingTest, FullRingHasNoRoomUntilSlotsAreReleased) {
    DatagramRing ring(4);
    write_sizes(ring, 0, 4);
    EXPECT_TRUE(ring.writable(1).empty());
    EXPECT_EQ(ring.wait_readable(2).size(), 2U);
    EXPECT_TRUE(ring.writable(1).empty()) << "read slots stay the reader's until it releases them";
    ring.release(2);
    EXPECT_EQ(ring.writable(100).size(), 2U);
}

TEST(DatagramRingTest, SlotsAreHandedOutInPiecesAtTheEndOfTheMemory) {
    DatagramRing ring(4);
    write_sizes(ring, 0, 3);
    ring.release(ring.wait_readable(3).size());
    EXPECT_EQ(ring.writable(100).size(), 1U);
    write_sizes(ring, 3, 3);
    const std::span<Slot> first = ring.wait_readable(100);
    ASSERT_EQ(first.size(), 1U);
    EXPECT_EQ(first[0].size, 3U);
    ring.release(1);
    const std::span<Slot> second = ring.wait_readable(100);
    ASSERT_EQ(second.size(), 2U);
    EXPECT_EQ(second[0].size, 4U);
    EXPECT_EQ(second[1].size, 5U);
}

TEST(DatagramRingTest, ClosedRingIsReadToItsEndFirst) {
    DatagramRing ring(4);
    write_sizes(ring, 0, 1);
    ring.close();
    EXPECT_EQ(ring.wait_readable(4).size(), 1U);
    ring.release(1);
    EXPECT_TRUE(ring.wait_readable(4).empty());
    ring.close();
    EXPECT_TRUE(ring.wait_readable(4).empty());
}

TEST(DatagramRingTest, CloseWakesAWaitingReader) {
    DatagramRing ring(4);
    std::thread reader([&ring] { EXPECT_TRUE(ring.wait_readable(4).empty()); });
    ring.close();
    reader.join();
}

TEST(DatagramRingTest, EverythingArrivesInOrderBetweenTwoThreads) {
    static constexpr std::size_t kCount = 100'000;
    DatagramRing ring(16);
    std::thread reader([&ring] {
        std::size_t expected = 0;
        for (std::span<Slot> slots = ring.wait_readable(7); !slots.empty(); slots = ring.wait_readable(7)) {
            for (const Slot& slot : slots) {
                ASSERT_EQ(slot.size, expected++);
            }
            ring.release(slots.size());
        }
        EXPECT_EQ(expected, kCount);
    });
    for (std::size_t written = 0; written < kCount;) {
        const std::span<Slot> free = ring.writable(5);
        for (Slot& slot : free) {
            slot.size = written++;
        }
        if (free.empty()) {
            std::this_thread::yield();
        } else {
            ring.publish(free.size());
        }
    }
    ring.close();
    reader.join();
}

}  // namespace
