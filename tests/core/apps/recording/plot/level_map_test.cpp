// How a recording is reduced to the columns of a picture.

#include <chrono>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QTemporaryDir>

#include "inspect/inspection.h"
#include "inspect/timeline.h"
#include "plot/level_map.h"
#include "support/recording.h"

using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

class LevelMapTest : public testing::Test {
protected:
    LevelMapTest() { inspect::silence_service_log(); }

    /// Reduces a recording; `to` 0 stands for its end.
    plot::LevelMap map(Recording recording, plot::Section section) const {
        const std::string path = directory_.path().toStdString() + "/test.rec";
        EXPECT_TRUE(recording.fill_to((recording.size() + 511) / 512 * 512).write(path));
        inspect::Timeline timeline(path, -1, -1, {});
        if (section.to == 0ns) {
            section.to = timeline.duration();
        }
        return plot::reduce(timeline, section);
    }

    static std::vector<int> row(const plot::UniverseMap& universe, int columns, int channel) {
        std::vector<int> levels;
        for (int column = 0; column < columns; ++column) {
            levels.push_back(universe.level(column, channel));
        }
        return levels;
    }

    QTemporaryDir directory_;
};

/// Ten frames of 30 ms: channel 0 counts up, channel 1 flashes in frame 4 alone.
Recording counting() {
    Recording recording;
    for (std::uint8_t frame = 0; frame < 10; ++frame) {
        recording.dmx(3, {frame, static_cast<std::uint8_t>(frame == 4 ? 255 : 0)}).frame_delay(30ms);
    }
    return recording;
}

}  // namespace

TEST_F(LevelMapTest, AColumnShowsTheHighestLevelWithinIt) {
    const plot::LevelMap reduced = map(counting(), {.columns = 5, .universes = {}});
    ASSERT_EQ(reduced.universes.size(), 1U);
    EXPECT_EQ(reduced.universes[0].universe, 3);
    EXPECT_EQ(reduced.universes[0].channels, 2);
    EXPECT_THAT(row(reduced.universes[0], 5, 0), ElementsAre(1, 3, 5, 7, 9));
    // A flash of one frame is not lost.
    EXPECT_THAT(row(reduced.universes[0], 5, 1), ElementsAre(0, 0, 255, 0, 0));
}

TEST_F(LevelMapTest, ALevelStandsUntilTheNextPacketAndNotForEver) {
    Recording recording;
    recording.dmx(1, {50}).dmx(2, {7}).frame_delay(3s);
    recording.dmx(1, {60}).frame_delay(3s).dmx(1, {70}).frame_delay(3s).dmx(1, {70}).frame_delay(30ms);
    const plot::LevelMap reduced = map(recording, {.to = 9s, .columns = 9, .universes = {}});
    ASSERT_EQ(reduced.universes.size(), 2U);
    EXPECT_THAT(row(reduced.universes[0], 9, 0), ElementsAre(50, 50, 50, 60, 60, 60, 70, 70, 70));
    constexpr int kNothing = plot::UniverseMap::kNothing;
    EXPECT_THAT(row(reduced.universes[1], 9, 0),
                ElementsAre(7, 7, 7, 7, kNothing, kNothing, kNothing, kNothing, kNothing));
}

TEST_F(LevelMapTest, ASectionShowsWhatStandsWithinIt) {
    const plot::LevelMap reduced =
        map(counting(), {.from = 60ms, .to = 150ms, .columns = 3, .universes = {}});
    ASSERT_EQ(reduced.universes.size(), 1U);
    EXPECT_THAT(row(reduced.universes[0], 3, 0), ElementsAre(2, 3, 4));
    EXPECT_EQ(reduced.frames, 3U);
    EXPECT_TRUE(map(counting(), {.columns = 3, .universes = {4}}).universes.empty());
}

TEST_F(LevelMapTest, AUniverseWithoutAnyChannelIsLeftOut) {
    const plot::LevelMap reduced =
        map(Recording{}.dmx(1, {}).dmx(2, {9}).frame_delay(30ms), {.columns = 2, .universes = {}});
    ASSERT_EQ(reduced.universes.size(), 1U);
    EXPECT_EQ(reduced.universes[0].universe, 2);
}

TEST_F(LevelMapTest, MoreColumnsThanFramesShowEachFrameInAllOfIts) {
    const plot::LevelMap reduced = map(counting(), {.from = 0ms, .to = 60ms, .columns = 6, .universes = {}});
    EXPECT_THAT(row(reduced.universes[0], 6, 0), ElementsAre(0, 0, 0, 1, 1, 1));
}

TEST_F(LevelMapTest, FramesAsFarOffAsTheirTimesCanSayAreNoTrouble) {
    constexpr std::chrono::nanoseconds kFar{std::int64_t{1} << 62};
    Recording recording;
    recording.dmx(1, {50}).frame_delay(kFar).dmx(1, {60}).frame_delay(kFar - 1ns).dmx(1, {70});
    const plot::LevelMap late =
        map(recording, {.from = kFar - 1ms, .to = kFar + 2ms, .columns = 3, .universes = {}});
    ASSERT_EQ(late.universes.size(), 1U);
    EXPECT_THAT(row(late.universes[0], 3, 0), ElementsAre(plot::UniverseMap::kNothing, 60, 60));
    EXPECT_EQ(late.intervals[0].longest, kFar);
    const plot::LevelMap early = map(recording, {.to = 3ms, .columns = 3, .universes = {}});
    EXPECT_THAT(row(early.universes[0], 3, 0), ElementsAre(50, 50, 50));
}

TEST_F(LevelMapTest, EveryPacketIsProgress) {
    const std::string path = directory_.path().toStdString() + "/test.rec";
    ASSERT_TRUE(counting().fill_to(512).write(path));
    inspect::Timeline timeline(path, -1, -1, {});
    std::vector<std::uint64_t> done;
    static_cast<void>(plot::reduce(timeline, {.to = timeline.duration(), .columns = 4, .universes = {}},
                                   [&](std::uint64_t packets) { done.push_back(packets); }));
    EXPECT_THAT(done, ElementsAre(1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U));
}

TEST_F(LevelMapTest, IntervalsKeepTheirExtremesInEachColumn) {
    Recording recording;
    recording.dmx(0, {1}).frame_delay(20ms).dmx(0, {1}).frame_delay(80ms).dmx(0, {1}).frame_delay(100ms);
    recording.dmx(0, {1}).frame_delay(30ms);
    const plot::LevelMap reduced = map(recording, {.to = 200ms, .columns = 2, .universes = {}});
    ASSERT_EQ(reduced.intervals.size(), 2U);
    EXPECT_EQ(reduced.intervals[0].shortest, 20ms);
    EXPECT_EQ(reduced.intervals[0].longest, 80ms);
    EXPECT_EQ(reduced.intervals[1].shortest, 100ms);
    EXPECT_EQ(reduced.intervals[1].longest, 100ms);
    EXPECT_EQ(reduced.median, 80ms);
    EXPECT_EQ(reduced.longest, 100ms);
    EXPECT_EQ(reduced.frames, 3U);
}
