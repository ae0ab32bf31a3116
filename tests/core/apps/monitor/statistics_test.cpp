// Intervals, streams, lateness figures and the recording's due times.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/failure.h"
#include "interval_window.h"
#include "lateness.h"
#include "ondra/timing.h"
#include "percentile.h"
#include "stream_table.h"
#include "support/artnet_sender.h"
#include "support/loaded_recording.h"
#include "support/recording.h"
#include "timeline.h"

using namespace std::chrono_literals;

namespace {

using monitor::IntervalFigures;
using monitor::IntervalWindow;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

TEST(PercentileTest, IsTheNearestRank) {
    std::vector<int> values;
    for (int i = 1; i <= 1000; ++i) {
        values.push_back(i);
    }
    const std::span<const int> all(values);
    EXPECT_EQ(monitor::percentile(all, 500), 500);
    EXPECT_EQ(monitor::percentile(all, 990), 990);
    EXPECT_EQ(monitor::percentile(all, 999), 999);
    EXPECT_EQ(monitor::percentile(all.first(3), 999), 3);
    EXPECT_EQ(monitor::percentile(all.first(3), 1), 1);
    EXPECT_EQ(monitor::percentile(all.first(0), 500), 0);
}

TEST(IntervalWindowTest, RateIntervalsAndHistogramAreThoseOfTheLastFiveSeconds) {
    IntervalWindow window;
    window.add(0s);
    for (int i = 0; i < 81; ++i) {
        window.add(60s + i * 25ms);
    }
    window.add(62s + 60ms);
    const IntervalFigures figures = window.figures(62s + 100ms);
    EXPECT_NEAR(figures.fps, 81 / 2.06, 1e-9);
    EXPECT_DOUBLE_EQ(figures.p50, 25);
    EXPECT_DOUBLE_EQ(figures.max, 60);
    EXPECT_DOUBLE_EQ(figures.worst, 60000);
    EXPECT_EQ(figures.histogram[8], 80U) << "above 24, up to 26 ms";
    EXPECT_EQ(figures.histogram[11], 1U) << "above 45, up to 100 ms";
    EXPECT_EQ(figures.histogram[12], 0U);
    EXPECT_EQ(window.packets(), 83U);

    EXPECT_EQ(window.figures(64s + 61ms).fps, 0) << "idle for two seconds";
    EXPECT_EQ(window.figures(80s).p50, 0) << "nothing within the window";
}

TEST(IntervalWindowTest, AnIntervalOnABoundBelongsToTheStepBelowIt) {
    IntervalWindow window;
    window.add(0ms);
    window.add(1ms);
    window.add(101ms);
    window.add(201ms + 1ns);
    const IntervalFigures figures = window.figures(300ms);
    EXPECT_EQ(figures.histogram[0], 1U);
    EXPECT_EQ(figures.histogram[11], 1U);
    EXPECT_EQ(figures.histogram[12], 1U);
}

capture::Arrival arrival(const std::vector<std::uint8_t>& packet, capture::Endpoint peer, nanoseconds time) {
    return capture::read_arrival({time, peer, packet}, capture::Payload::Plain);
}

TEST(StreamTableTest, EachSenderOfEachUniverseIsAStreamWithItsSequenceAndLevels) {
    constexpr capture::Endpoint kOne{0x0A000001, 6454};
    constexpr capture::Endpoint kTwo{0x0A000002, 6454};
    monitor::StreamTable table(true);
    for (int i = 0; i < 3; ++i) {
        const auto sequence = static_cast<std::uint8_t>(2 * i + 1);
        table.add(arrival(tests::dmx_packet(3, {1, 2}, sequence), kTwo, i * 25ms));
        table.add(arrival(tests::dmx_packet(3, {9}, 7), kOne, i * 25ms + 5ms));
        table.add(arrival(tests::dmx_packet(2, {5}), kOne, i * 25ms + 6ms));
    }
    table.add(arrival(tests::sync_packet(), kOne, 80ms));
    table.add(arrival({1, 2, 3}, kOne, 80ms));
    std::vector<std::uint8_t> cut = tests::dmx_packet(3, {1, 2});
    cut.pop_back();
    table.add(arrival(cut, kOne, 80ms));

    const std::vector<monitor::StreamRow> rows = table.rows(100ms);
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0].universe, 2);
    EXPECT_FALSE(rows[0].conflict);
    EXPECT_EQ(rows[1].peer, kOne);
    EXPECT_EQ(rows[1].sequence.repeated(), 2U);
    EXPECT_TRUE(rows[1].conflict);
    EXPECT_EQ(rows[2].peer, kTwo);
    EXPECT_EQ(rows[2].sequence.lost(), 2U);
    EXPECT_EQ(rows[2].packets, 3U);
    EXPECT_NEAR(rows[2].intervals.fps, 40, 1e-9);
    EXPECT_THAT(rows[2].levels, ElementsAre(1, 2));
    EXPECT_EQ(table.others().other_artnet, 1U);
    EXPECT_EQ(table.others().not_artnet, 1U);
    EXPECT_EQ(table.others().malformed, 1U);
}

TEST(StreamTableTest, StreamsBeyondTheLimitAreOnlyCounted) {
    monitor::StreamTable table(false);
    for (std::uint16_t universe = 0; universe < monitor::StreamTable::kMostStreams + 5; ++universe) {
        table.add(arrival(tests::dmx_packet(universe, {1}), {}, 0ns));
    }
    EXPECT_EQ(table.rows(0ns).size(), monitor::StreamTable::kMostStreams);
    EXPECT_EQ(table.others().beyond_limit, 5U);
}

TEST(LatenessTest, FiguresAreRanksOfAllSamples) {
    std::vector<nanoseconds> lateness;
    for (int i = 1000; i > 0; --i) {
        lateness.push_back(i * 1us);
    }
    lateness.push_back(-5us);
    EXPECT_EQ(monitor::figures_of(lateness), (monitor::LatenessFigures{-5us, 500us, 990us, 999us, 1000us}));
    EXPECT_EQ(monitor::figures_of({}), monitor::LatenessFigures{});
}

TEST(LatenessTest, HistogramHasRoundEndsAndHoldsEverySampleOnce) {
    std::vector<nanoseconds> lateness{-40ms, 3s};
    for (int i = 0; i < 5000; ++i) {
        lateness.push_back(i * 200ns - 3us);
    }
    const monitor::LatenessHistogram histogram = monitor::histogram_of(lateness, 100);
    EXPECT_EQ(histogram.to - histogram.from, 2ms) << "a hundred steps of 20 us";
    EXPECT_EQ(histogram.from, -20us);
    EXPECT_EQ(histogram.below, 1U);
    EXPECT_EQ(histogram.beyond, 1U);
    std::uint64_t inside = 0;
    for (const std::uint64_t count : histogram.counts) {
        inside += count;
    }
    EXPECT_EQ(inside, 5000U);
    EXPECT_EQ(histogram.counts[1], 100U) << "0 to 20 us";
    EXPECT_EQ(monitor::histogram_of({}, 10).counts.size(), 10U);
    EXPECT_EQ(monitor::histogram_of(std::vector<nanoseconds>(7, 1ms), 10).counts[0], 7U);
}

class TimelineTest : public testing::Test {
protected:
    [[nodiscard]] std::string path() const {
        return directory_.filePath(QStringLiteral("a.rec")).toStdString();
    }

    QTemporaryDir directory_;
};

TEST_F(TimelineTest, DueTimesAreThoseOfTheServicesOwnLoaderAtAnySpeed) {
    Recording recording;
    for (int frame = 0; frame < 50; ++frame) {
        const auto level = static_cast<std::uint8_t>(frame);
        recording.dmx(1, {level}).dmx(2, {level, level});
        switch (frame % 4) {
            case 0:
                recording.frame_delay(25ms + frame * 1ns);
                break;
            case 1:
                recording.frame_delay_ms(40);
                break;
            case 2:
                recording.frame_delay_ms(7).frame_delay(0ns);
                break;
            default:
                break;
        }
    }
    ASSERT_TRUE(recording.fill_to((recording.size() / 512 + 1) * 512).write(path()));
    for (const int boost : {0, 50, 100, -100, 7}) {
        const monitor::Timeline timeline = monitor::read_timeline(path(), boost);
        const std::vector<Playlist::Packet> packets = tests::load_recording(path());
        ASSERT_EQ(timeline.packets, packets.size());
        nanoseconds due{0};
        std::map<int, std::size_t> next;
        for (const Playlist::Packet& packet : packets) {
            const auto& expected = timeline.universes.at(static_cast<std::uint16_t>(packet.universe));
            const monitor::ExpectedPacket& own = expected.at(next[packet.universe]++);
            EXPECT_EQ(own.due, due);
            EXPECT_EQ(own.levels, monitor::mark_of(std::span(packet.data).subspan(18)));
            if (packet.delay >= 1ns) {
                due += ondra::calculate_delay(packet.delay, boost);
            }
        }
        EXPECT_EQ(timeline.duration, due);
    }
}

TEST_F(TimelineTest, TheReadingTellsHowFarItIs) {
    Recording recording;
    for (int frame = 0; frame < 100; ++frame) {
        recording.dmx(1, {1}).frame_delay(25ms);
    }
    ASSERT_TRUE(recording.fill_to(4096).write(path()));
    std::vector<std::uint64_t> told;
    static_cast<void>(
        monitor::read_timeline(path(), 0, [&told](std::uint64_t bytes) { told.push_back(bytes); }));
    EXPECT_EQ(told.size(), 100U);
    EXPECT_TRUE(std::ranges::is_sorted(told));
    EXPECT_LT(told.front(), 4096U);
    EXPECT_EQ(told.back(), 4096U);
}

TEST_F(TimelineTest, FilesWithNothingToCompareWithAreNamed) {
    const auto read = [](const std::string& path) {
        return [path] { static_cast<void>(monitor::read_timeline(path, 0)); };
    };
    EXPECT_THAT(read("/no/such.rec"), ThrowsMessage<cli::Failure>(HasSubstr("/no/such.rec: ")));
    const std::string circle = path() + ".circle";
    std::filesystem::create_symlink(circle, circle);
    EXPECT_THAT(read(circle), ThrowsMessage<cli::Failure>(HasSubstr(".circle: Too many levels of symbolic")));
    ASSERT_TRUE(Recording{}.frame_delay(25ms).fill_to(512).write(path()));
    EXPECT_THAT(read(path()), ThrowsMessage<cli::Failure>(HasSubstr("a.rec: holds nothing to compare with")));
}

TEST_F(TimelineTest, OfARecordingThatIsCutShortWhatPlaysIsTaken) {
    Recording recording;
    recording.dmx(1, {1}).frame_delay(25ms).dmx(1, {2}).frame_delay(25ms).dmx(1, {3});
    ASSERT_TRUE(recording.cut_to(recording.size() - 1).write(path()));
    EXPECT_EQ(monitor::read_timeline(path(), 0).packets, tests::load_recording(path()).size());
}

}  // namespace
