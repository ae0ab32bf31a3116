#include "capture/sender_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

using capture::Endpoint;
using capture::SenderConflict;
using capture::SenderWatch;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr Endpoint kOne{0x0A000001, 6454};
constexpr Endpoint kTwo{0x0A000002, 6454};

TEST(SenderWatchTest, TwoThatTakeTurnsOnAUniverseAreAConflictOnce) {
    SenderWatch watch;
    EXPECT_FALSE(watch.add(3, kTwo, 0ms));
    EXPECT_FALSE(watch.add(3, kOne, 10ms));
    EXPECT_EQ(watch.add(3, kTwo, 25ms), (SenderConflict{3, kOne, kTwo}));
    EXPECT_FALSE(watch.add(3, kOne, 35ms)) << "told already";
    EXPECT_THAT(watch.conflicts(), ElementsAre(SenderConflict{3, kOne, kTwo}));
    EXPECT_TRUE(watch.conflicting(3, 40ms));
    EXPECT_FALSE(watch.conflicting(4, 40ms));
    EXPECT_FALSE(watch.conflicting(3, 3s)) << "it has ended";
}

TEST(SenderWatchTest, ATakeOverIsNoConflict) {
    SenderWatch watch;
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(watch.add(3, kOne, i * 25ms));
    }
    for (int i = 10; i < 20; ++i) {
        EXPECT_FALSE(watch.add(3, kTwo, i * 25ms));
    }
    EXPECT_FALSE(watch.add(3, kOne, 10s)) << "long after it had ended";
    EXPECT_THAT(watch.conflicts(), IsEmpty());
}

TEST(SenderWatchTest, DifferentUniversesOfTwoSendersAreNoConflict) {
    SenderWatch watch;
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(watch.add(1, kOne, i * 25ms));
        EXPECT_FALSE(watch.add(2, kTwo, i * 25ms));
    }
}

TEST(SenderWatchTest, AFloodOfSendersIsFollowedAsFarAsTheRoomGoes) {
    SenderWatch watch;
    for (std::uint16_t port = 1; port < 1000; ++port) {
        watch.add(1, {0x0A000001, port}, port * 1ms);
    }
    watch.add(1, kTwo, 1001ms);
    watch.add(1, {0x0A000001, 999}, 1002ms);
    EXPECT_EQ(watch.conflicts().size(), 1U) << "the last ones are remembered";
}

}  // namespace
