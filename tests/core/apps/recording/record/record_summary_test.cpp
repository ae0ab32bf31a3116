// What is counted, and how the summary says it.
#include "record_summary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "destination_choice.h"

using namespace std::chrono_literals;

namespace {

using recording::FrameEnd;
using recording::RecordStatistics;
using testing::HasSubstr;

/// Universe 3 forty times a second with one packet lost, and a second sender that comes in between.
RecordStatistics busy() {
    RecordStatistics statistics;
    for (int i = 0; i <= 40; ++i) {
        capture::Arrival arrival{i * 25ms, {0x0A000001, 6454}, artnet::PacketKind::Dmx, {}};
        arrival.dmx.universe = 3;
        if (i < 15) {
            arrival.dmx.sequence = static_cast<std::uint8_t>(241 + i);
        } else {
            arrival.dmx.sequence = static_cast<std::uint8_t>(i - 15 + 1 + (i > 30 ? 1 : 0));
        }
        statistics.add_recorded(arrival);
        statistics.add_frame(i < 40 ? FrameEnd::Repetition : FrameEnd::Finish);
    }
    capture::Arrival other{1001ms, {0x0A000002, 6454}, artnet::PacketKind::Dmx, {}};
    other.dmx.universe = 3;
    EXPECT_FALSE(statistics.add_recorded(other));
    other.time = 1002ms;
    other.peer = {0x0A000001, 6454};
    other.dmx.sequence = 28;
    EXPECT_TRUE(statistics.add_recorded(other));
    statistics.add_unrecorded(artnet::PacketKind::Malformed);
    statistics.add_unrecorded(artnet::PacketKind::Sync);
    statistics.add_unrecorded(artnet::PacketKind::NotArtNet);
    statistics.add_filtered();
    return statistics;
}

TEST(RecordSummaryTest, TextSaysWhatWasRecordedLostAndDropped) {
    const RecordStatistics statistics = busy();
    const std::string text = recording::summary_text({"show.rec", 1024, 41, 1030ms, 5, statistics});
    EXPECT_THAT(text, HasSubstr("show.rec: 41 frames of 1 universe, 1.03 s, 1024 bytes\n"));
    EXPECT_THAT(text, HasSubstr("the last frame stands 30 ms, counted in"));
    EXPECT_THAT(
        text,
        HasSubstr("       3        43    41.92        1        0        0  10.0.0.1:6454 10.0.0.2:6454\n"));
    EXPECT_THAT(text, HasSubstr("frames ended by ArtSync 0, by repetition 40, by a gap 0\n"));
    EXPECT_THAT(
        text, HasSubstr("filtered 1, other Art-Net 1, malformed 1, no Art-Net 1; dropped by the kernel 5\n"));
    EXPECT_THAT(text, HasSubstr("warning: universe 3 has two senders, 10.0.0.1:6454 and 10.0.0.2:6454\n"));
}

TEST(RecordSummaryTest, JsonSaysTheSame) {
    const RecordStatistics statistics = busy();
    const auto json =
        nlohmann::json::parse(recording::summary_json({"sh\xFFow", 1024, 41, 1030ms, 5, statistics}));
    EXPECT_EQ(json["frames"], 41);
    EXPECT_EQ(json["duration_ns"], 1030000000);
    EXPECT_EQ(json["last_frame_ns"], 30000000);
    EXPECT_EQ(json["kernel_drops"], 5);
    EXPECT_EQ(json["universes"][0]["universe"], 3);
    EXPECT_EQ(json["universes"][0]["frames"], 43);
    EXPECT_EQ(json["universes"][0]["lost"], 1);
    EXPECT_EQ(json["conflicts"][0]["senders"][1], "10.0.0.2:6454");
    EXPECT_EQ(json["not_recorded"]["malformed"], 1);
}

TEST(RecordSummaryTest, FramesThatDidNotComeToTheFileAreTold) {
    const RecordStatistics statistics = busy();
    const recording::RecordSummary some{"show.rec", 1024, 2, 55ms, 5, statistics};
    EXPECT_THAT(recording::summary_text(some),
                testing::AllOf(HasSubstr("show.rec: 2 frames of 1 universe, 0.055 s, 1024 bytes\n"),
                               HasSubstr("captured, but not in the file: 39 frames\n")));
    EXPECT_EQ(nlohmann::json::parse(recording::summary_json(some))["frames_not_written"], 39);
    const RecordStatistics nothing{};
    EXPECT_THAT(recording::summary_text({"show.rec", 0, 0, 0ns, 0, nothing}),
                testing::AllOf(HasSubstr("show.rec: 0 frames of 0 universes, 0 s, 0 bytes\n"),
                               testing::Not(HasSubstr("30 ms"))));
}

TEST(RecordSummaryTest, OfWrappedDatagramsItSaysDestinations) {
    const RecordStatistics statistics = busy();
    const recording::RecordSummary summary{
        "show.rec", 1024, 41, 1030ms, 5, statistics, capture::Payload::Wrapped};
    const std::string text = recording::summary_text(summary);
    EXPECT_THAT(text, HasSubstr(" repeated  destinations\n"));
    EXPECT_THAT(text, HasSubstr("warning: universe 3 has two destinations, 10.0.0.1:6454 and"));
    const auto json = nlohmann::json::parse(recording::summary_json(summary));
    EXPECT_EQ(json["universes"][0]["destinations"][0], "10.0.0.1:6454");
    EXPECT_EQ(json["conflicts"][0]["destinations"][1], "10.0.0.2:6454");
}

TEST(DestinationChoiceTest, TheFirstOfAUniverseIsRecordedUntilItFallsSilent) {
    const capture::Endpoint one{0x0A000001, 6454};
    const capture::Endpoint two{0x0A000002, 6454};
    recording::DestinationChoice choice;
    EXPECT_TRUE(choice.chooses(3, two, 0ms));
    EXPECT_FALSE(choice.chooses(3, one, 1ms));
    EXPECT_TRUE(choice.chooses(4, one, 1ms)) << "each universe for itself";
    EXPECT_FALSE(choice.chooses(4, two, 2ms));
    EXPECT_TRUE(choice.chooses(3, two, 1s));
    EXPECT_FALSE(choice.chooses(3, one, 3s));
    EXPECT_TRUE(choice.chooses(3, one, 3s + 1ns));
    EXPECT_FALSE(choice.chooses(3, two, 3s + 2ns));
}

}  // namespace
