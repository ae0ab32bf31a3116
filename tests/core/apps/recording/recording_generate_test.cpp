// Test patterns, and frame times that do not drift.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "generator.h"
#include "recording_files.h"

using namespace recording;
using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;

namespace {

using Levels = std::vector<int>;

Generation generation_of(Pattern pattern, int channels = 8) {
    Generation generation;
    generation.pattern = pattern;
    generation.universes = {3};
    generation.channels = channels;
    generation.seconds = 0.5;
    return generation;
}

/// The levels of every packet.
std::vector<Levels> levels_of(const Generation& generation) {
    std::stringstream stream;
    RecordingWriter writer(stream);
    generate_recording(generation, writer, [](std::uint64_t) {});
    writer.pad();
    std::vector<Levels> levels;
    RecordingReader reader;
    reader.on_packet = [&](const RecordedPacket& packet) {
        levels.emplace_back(packet.bytes.begin() + kDmxHeaderSize, packet.bytes.end());
    };
    std::error_code error;
    reader.read(stream, error);
    return levels;
}

}  // namespace

TEST(RecordingGenerateTest, AFrameHoldsEveryUniverseInOrderAndThenItsTime) {
    Generation generation = generation_of(Pattern::Still, 1);
    generation.universes = {9, 0, 1};
    generation.fps = 50;
    generation.seconds = 0.04;
    std::ostringstream stream;
    RecordingWriter writer(stream);
    std::uint64_t frames = 0;
    EXPECT_EQ(generate_recording(generation, writer, [&](std::uint64_t done) { frames = done; }), 50ms);
    EXPECT_EQ(frames, 2U);
    Recording expected;
    for (const int sequence : {1, 2}) {
        for (const auto& [universe, level] : std::vector<std::pair<int, int>>{{9, 0}, {0, 16}, {1, 32}}) {
            expected.header(0x5000).raw({0, 14, sequence, 0, universe, 0, 0, 1, level});
        }
        expected.frame_delay(20ms);
    }
    EXPECT_EQ(stream.str(), expected.text());
}

TEST(RecordingGenerateTest, TheSequenceGoesFromOneToTwoHundredAndFiftyFive) {
    Generation generation = generation_of(Pattern::Still, 1);
    generation.seconds = 257 / generation.fps;
    std::stringstream stream;
    RecordingWriter writer(stream);
    generate_recording(generation, writer, [](std::uint64_t) {});
    std::vector<int> sequence;
    RecordingReader reader;
    reader.on_packet = [&](const RecordedPacket& packet) { sequence.push_back(packet.bytes[12]); };
    writer.pad();
    std::error_code error;
    reader.read(stream, error);
    ASSERT_EQ(sequence.size(), 257U);
    EXPECT_EQ(sequence[0], 1);
    EXPECT_EQ(sequence[254], 255);
    EXPECT_EQ(sequence[255], 1);
}

TEST(RecordingGenerateTest, FrameTimesAddUpToTheRateWithoutDrift) {
    Generation generation = generation_of(Pattern::Still);
    generation.fps = 30;
    std::chrono::nanoseconds sum{0};
    for (std::uint64_t frame = 0; frame < 30 * 3600; ++frame) {
        sum += frame_time(generation, frame);
    }
    EXPECT_EQ(sum, 1h);
    generation.timing = TimingUnit::Milliseconds;
    EXPECT_EQ(frame_time(generation, 0), 33ms);
    EXPECT_EQ(frame_time(generation, 1), 33ms);
    EXPECT_EQ(frame_time(generation, 2), 34ms);
    generation.fps = 29.97;
    sum = 0ns;
    for (std::uint64_t frame = 0; frame < 2997; ++frame) {
        EXPECT_GT(frame_time(generation, frame), 32ms);
        EXPECT_LT(frame_time(generation, frame), 35ms);
        sum += frame_time(generation, frame);
    }
    EXPECT_GE(sum, 100s - 1ms);
    EXPECT_LE(sum, 100s);
}

TEST(RecordingGenerateTest, ALengthIsRoundedToFramesAndIsOneAtLeast) {
    Generation generation = generation_of(Pattern::Still);
    generation.seconds = 0;
    EXPECT_EQ(frame_count(generation), 1U);
    generation.seconds = 1.01;
    EXPECT_EQ(frame_count(generation), 40U);
    generation.fps = 0.01;
    EXPECT_EQ(frame_count(generation), 1U);
}

TEST(RecordingGenerateTest, ChaseMovesOneChannelAFrameAndDrawsATail) {
    const std::vector<Levels> levels = levels_of(generation_of(Pattern::Chase));
    EXPECT_THAT(levels[0], ElementsAre(255, 0, 0, 0, 0, 32, 64, 128));
    EXPECT_THAT(levels[1], ElementsAre(128, 255, 0, 0, 0, 0, 32, 64));
    EXPECT_EQ(levels[8], levels[0]);
}

TEST(RecordingGenerateTest, RampRisesByOneAndStillStands) {
    const std::vector<Levels> ramp = levels_of(generation_of(Pattern::Ramp, 3));
    EXPECT_THAT(ramp[0], ElementsAre(0, 1, 2));
    EXPECT_THAT(ramp[7], ElementsAre(7, 8, 9));
    const std::vector<Levels> still = levels_of(generation_of(Pattern::Still, 3));
    EXPECT_THAT(still, Each(ElementsAre(0, 1, 2)));
}

TEST(RecordingGenerateTest, SineSwingsThroughAllLevelsInTwoSeconds) {
    Generation generation = generation_of(Pattern::Sine, 1);
    generation.seconds = 2;
    const std::vector<Levels> levels = levels_of(generation);
    ASSERT_EQ(levels.size(), 80U);
    EXPECT_EQ(levels[0][0], 128);
    EXPECT_EQ(levels[20][0], 255);
    EXPECT_EQ(levels[60][0], 0);
}

TEST(RecordingGenerateTest, StrobeIsOnForAnEighthOfASecondAndOffForTheNext) {
    const std::vector<Levels> levels = levels_of(generation_of(Pattern::Strobe, 2));
    ASSERT_EQ(levels.size(), 20U);
    EXPECT_THAT(levels[4], Each(255));
    EXPECT_THAT(levels[5], Each(0));
    EXPECT_THAT(levels[10], Each(255));
}

TEST(RecordingGenerateTest, RandomFollowsFromItsSeed) {
    Generation generation = generation_of(Pattern::Random);
    const std::vector<Levels> first = levels_of(generation);
    EXPECT_EQ(levels_of(generation), first);
    EXPECT_NE(first[0], first[1]);
    generation.seed = 2;
    EXPECT_NE(levels_of(generation), first);
}
