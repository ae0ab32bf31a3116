// Rates, intervals and levels per universe.
#include "watch_statistics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "udp_peer.h"

namespace {

using forwarder::DmxFrame;
using forwarder::Endpoint;
using forwarder::WatchRow;
using forwarder::WatchStatistics;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;

constexpr WatchStatistics::Clock::time_point kStart{std::chrono::hours(1)};
constexpr Endpoint kTarget{0xC0000201, 6454};
const std::vector<unsigned char> kLevels{1, 2, 3};

void record(WatchStatistics& statistics, unsigned universe, WatchStatistics::Clock::time_point time,
            const Endpoint& target = kTarget) {
    statistics.record(target, {universe, kLevels}, time);
}

TEST(ReadDmxTest, UniverseAndLevelsAreThoseOfThePacket) {
    DmxFrame frame;
    const tests::Bytes packet = tests::artdmx(0x1234, 9);
    ASSERT_TRUE(forwarder::read_dmx(packet, frame));
    EXPECT_EQ(frame.universe, 0x1234U);
    ASSERT_EQ(frame.levels.size(), 512U);
    EXPECT_EQ(frame.levels[0], 9);
    EXPECT_EQ(frame.levels[511], 9);
}

TEST(ReadDmxTest, LengthOfThePacketLimitsTheLevels) {
    DmxFrame frame;
    tests::Bytes packet = tests::artdmx(0);
    packet[16] = 0;
    packet[17] = 2;
    ASSERT_TRUE(forwarder::read_dmx(packet, frame));
    EXPECT_EQ(frame.levels.size(), 2U);
    packet[16] = 0xFF;
    ASSERT_TRUE(forwarder::read_dmx(packet, frame));
    EXPECT_EQ(frame.levels.size(), 512U);
}

TEST(ReadDmxTest, OtherPacketsAreNoFrames) {
    DmxFrame frame;
    tests::Bytes packet = tests::artdmx(0);
    packet[9] = 0x51;
    EXPECT_FALSE(forwarder::read_dmx(packet, frame));
    EXPECT_FALSE(forwarder::read_dmx(tests::Bytes(17), frame));
}

TEST(PercentileTest, SmallestValueThatEnoughOthersDoNotExceed) {
    const std::vector<double> values{1, 2, 3, 4};
    EXPECT_EQ(forwarder::percentile(values, 50), 2);
    EXPECT_EQ(forwarder::percentile(values, 51), 3);
    EXPECT_EQ(forwarder::percentile(values, 100), 4);
    EXPECT_EQ(forwarder::percentile({}, 50), 0);
    std::vector<double> hundred(100, 1.0);
    hundred[99] = 9;
    EXPECT_EQ(forwarder::percentile(hundred, 99), 1);
    EXPECT_EQ(forwarder::percentile(hundred, 100), 9);
}

TEST(WatchStatisticsTest, SteadyFramesHaveTheirRateAndInterval) {
    WatchStatistics statistics;
    for (int i = 0; i <= 40; ++i) {
        record(statistics, 5, kStart + i * milliseconds(25));
    }
    const std::vector<WatchRow> rows = statistics.rows(kStart + seconds(1));
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].universe, 5U);
    EXPECT_EQ(rows[0].target, kTarget);
    EXPECT_DOUBLE_EQ(rows[0].fps, 40);
    EXPECT_DOUBLE_EQ(rows[0].interval_p50, 25);
    EXPECT_DOUBLE_EQ(rows[0].interval_max, 25);
    EXPECT_EQ(rows[0].frames, 41U);
    EXPECT_THAT(rows[0].levels, ElementsAre(1, 2, 3));
}

TEST(WatchStatisticsTest, OneLateFrameShowsInTheLongestIntervalOnly) {
    WatchStatistics statistics;
    for (int i = 0; i <= 100; ++i) {
        record(statistics, 0,
               kStart + i * milliseconds(10) + (i == 100 ? milliseconds(90) : milliseconds(0)));
    }
    const WatchRow row = statistics.rows(kStart + milliseconds(1090)).at(0);
    EXPECT_DOUBLE_EQ(row.interval_p50, 10);
    EXPECT_DOUBLE_EQ(row.interval_p99, 10);
    EXPECT_DOUBLE_EQ(row.interval_max, 100);
}

TEST(WatchStatisticsTest, FramesOlderThanTheWindowNoLongerCount) {
    WatchStatistics statistics;
    record(statistics, 0, kStart);
    record(statistics, 0, kStart + seconds(1));
    record(statistics, 0, kStart + seconds(6));
    record(statistics, 0, kStart + seconds(6) + milliseconds(100));
    const WatchRow row = statistics.rows(kStart + milliseconds(6100)).at(0);
    EXPECT_DOUBLE_EQ(row.interval_max, 100);
    EXPECT_DOUBLE_EQ(row.fps, 10);
    EXPECT_EQ(row.frames, 4U);
}

TEST(WatchStatisticsTest, FastUniverseKeepsItsLatestFrames) {
    WatchStatistics statistics;
    for (int i = 0; i < 2000; ++i) {
        record(statistics, 0,
               kStart + i * milliseconds(i < 1000 ? 2 : 1) + milliseconds(i < 1000 ? 0 : 1000));
    }
    const WatchRow row = statistics.rows(kStart + milliseconds(2999)).at(0);
    EXPECT_DOUBLE_EQ(row.fps, 1000);
    EXPECT_EQ(row.frames, 2000U);
}

TEST(WatchStatisticsTest, UniverseThatHasStoppedShowsNoRateButItsLastLevels) {
    WatchStatistics statistics;
    record(statistics, 0, kStart);
    record(statistics, 0, kStart + milliseconds(25));
    EXPECT_GT(statistics.rows(kStart + seconds(2)).at(0).fps, 0);
    const WatchRow row = statistics.rows(kStart + milliseconds(2026)).at(0);
    EXPECT_EQ(row.fps, 0);
    EXPECT_THAT(row.levels, ElementsAre(1, 2, 3));
}

TEST(WatchStatisticsTest, DestinationsOfOneUniverseAreKeptApart) {
    WatchStatistics statistics;
    record(statistics, 1, kStart, {2, 6454});
    record(statistics, 1, kStart, {1, 6454});
    record(statistics, 0, kStart, {9, 6454});
    const std::vector<WatchRow> rows = statistics.rows(kStart);
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0].universe, 0U);
    EXPECT_EQ(rows[1].target, (Endpoint{1, 6454}));
    EXPECT_EQ(rows[2].target, (Endpoint{2, 6454}));
}

TEST(WatchStatisticsTest, StreamsBeyondTheLimitAreOnlyCounted) {
    WatchStatistics statistics;
    for (unsigned i = 0; i < WatchStatistics::kMostStreams + 3; ++i) {
        record(statistics, i, kStart);
    }
    record(statistics, 0, kStart + milliseconds(25));
    EXPECT_EQ(statistics.rows(kStart).size(), WatchStatistics::kMostStreams);
    EXPECT_EQ(statistics.frames_beyond_limit(), 3U);
    EXPECT_EQ(statistics.rows(kStart + milliseconds(25)).at(0).frames, 2U);
}

}  // namespace
