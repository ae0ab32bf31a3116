// The ring between the threads: bounds, order, waiting and closing.
#include "datagram_ring.h"

#include <thread>

#include <gtest/gtest.h>
#include <poll.h>

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

bool room_is_announced(const DatagramRing& ring, int timeout = 0) {
    pollfd wait{ring.room_descriptor(), POLLIN, 0};
    return poll(&wait, 1, timeout) == 1;
}

TEST(DatagramRingTest, OnlyAClosedRingThatIsReleasedToItsEndIsFinished) {
    DatagramRing ring(4);
    write_sizes(ring, 0, 2);
    EXPECT_FALSE(ring.finished());
    ring.close();
    EXPECT_FALSE(ring.finished());
    ring.release(ring.wait_readable(1).size());
    EXPECT_FALSE(ring.finished());
    ring.release(ring.wait_readable(1).size());
    EXPECT_TRUE(ring.finished());
}

TEST(DatagramRingTest, WaitEndsAtItsTimeWithoutASlot) {
    DatagramRing ring(4);
    const auto begin = DatagramRing::Clock::now();
    EXPECT_TRUE(ring.wait_readable(4, begin + std::chrono::milliseconds(5)).empty());
    EXPECT_GE(DatagramRing::Clock::now() - begin, std::chrono::milliseconds(5));
    EXPECT_TRUE(ring.wait_readable(4, begin).empty()) << "a time in the past";
    EXPECT_FALSE(ring.finished());
    write_sizes(ring, 0, 1);
    EXPECT_EQ(ring.wait_readable(4, begin).size(), 1U) << "a slot counts whatever the time";
}

TEST(DatagramRingTest, RoomIsAnnouncedOnceToAWriterThatAskedForIt) {
    DatagramRing ring(2);
    EXPECT_FALSE(ring.await_room()) << "there is room";
    write_sizes(ring, 0, 2);
    ring.release(ring.wait_readable(1).size());
    EXPECT_FALSE(room_is_announced(ring)) << "nobody asked";
    write_sizes(ring, 2, 1);
    EXPECT_TRUE(ring.await_room());
    EXPECT_FALSE(room_is_announced(ring));
    ring.release(ring.wait_readable(1).size());
    EXPECT_TRUE(room_is_announced(ring));
    write_sizes(ring, 3, 1);
    EXPECT_TRUE(ring.await_room());
    EXPECT_FALSE(room_is_announced(ring)) << "the earlier announcement is gone";
}

TEST(DatagramRingTest, NeitherSideMissesTheOthersWakeUp) {
    // A ring of one: each side waits for the other in nearly every step, without any time-out of its own.
    static constexpr std::size_t kCount = 2'000;
    DatagramRing ring(1);
    std::thread reader([&ring] {
        for (std::size_t expected = 0; expected < kCount; ++expected) {
            const std::span<Slot> slots = ring.wait_readable(1);
            ASSERT_EQ(slots.size(), 1U);
            ASSERT_EQ(slots[0].size, expected);
            ring.release(1);
        }
    });
    for (std::size_t written = 0; written < kCount;) {
        while (ring.await_room()) {
            ASSERT_TRUE(room_is_announced(ring, 60'000)) << written;
        }
        ring.writable(1)[0].size = written++;
        ring.publish(1);
    }
    reader.join();
}

TEST(DatagramRingTest, EverythingArrivesInOrderBetweenTwoThreads) {
    static constexpr std::size_t kCount = 10'000;
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
