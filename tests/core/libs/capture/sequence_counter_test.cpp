#include "capture/sequence_counter.h"

#include <initializer_list>

#include <gtest/gtest.h>

namespace {

using capture::SequenceCounter;

SequenceCounter after(std::initializer_list<int> numbers) {
    SequenceCounter counter;
    for (const int number : numbers) {
        counter.add(static_cast<std::uint8_t>(number));
    }
    return counter;
}

TEST(SequenceCounterTest, UnbrokenNumbersShowNoErrorAlsoAcrossTheWrapThatLeavesOutZero) {
    SequenceCounter counter;
    for (int i = 0; i < 600; ++i) {
        counter.add(static_cast<std::uint8_t>(i % 255 + 1));
    }
    EXPECT_EQ(counter.errors(), 0U);
    EXPECT_EQ(counter.restarts(), 0U);
}

TEST(SequenceCounterTest, ZeroSaysThatNumbersAreNotUsed) {
    EXPECT_EQ(after({0, 0, 0}).errors(), 0U);
    EXPECT_EQ(after({5, 0, 9, 10}).errors(), 0U) << "nothing is known of what came between";
}

TEST(SequenceCounterTest, MissingNumbersAreLostPackets) {
    EXPECT_EQ(after({1, 2, 5}).lost(), 2U);
    EXPECT_EQ(after({254, 2}).lost(), 2U) << "255 and 1";
    EXPECT_EQ(after({1, 128}).lost(), 126U);
}

TEST(SequenceCounterTest, APacketThatComesLateWasNotLost) {
    const SequenceCounter counter = after({1, 2, 4, 3, 5});
    EXPECT_EQ(counter.lost(), 0U);
    EXPECT_EQ(counter.late(), 1U);
}

TEST(SequenceCounterTest, TheSameNumberAgainIsARepeatedPacket) {
    const SequenceCounter counter = after({7, 7, 8});
    EXPECT_EQ(counter.repeated(), 1U);
    EXPECT_EQ(counter.errors(), 1U);
}

TEST(SequenceCounterTest, FourNumbersFromBehindInOrderAreASenderThatBeganAnew) {
    const SequenceCounter counter = after({100, 101, 1, 2, 3, 4, 5, 6});
    EXPECT_EQ(counter.restarts(), 1U);
    EXPECT_EQ(counter.errors(), 0U);
    EXPECT_EQ(after({100, 101, 1, 2, 3}).late(), 3U) << "three are not enough";
    EXPECT_EQ(after({100, 1, 50, 2, 40}).restarts(), 0U) << "not in order";
}

}  // namespace
