// What a recording plays: each packet's time, delay and frame.
#include "artnet/recording_reader.h"

#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "artnet/recording_writer.h"
#include "support/recording.h"

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

namespace {

/// "UNIVERSE @BEGIN +DELAY fFRAME", times in nanoseconds, with " end" where a frame ends, " last", " stale".
struct Reading {
    std::vector<std::string> packets;
    std::vector<int> others;
    int oversized = 0;
    std::error_code error;
};

Reading read_all(const std::string& bytes, bool with_rest = false) {
    Reading reading;
    RecordingReader reader;
    reader.on_packet = [&](const RecordedPacket& packet) {
        std::ostringstream text;
        text << packet.universe << " @" << packet.begin.count() << " +" << packet.delay.count() << " f"
             << packet.frame << (packet.ends_frame ? " end" : "") << (packet.is_last ? " last" : "")
             << (packet.is_stale ? " stale" : "");
        reading.packets.push_back(text.str());
    };
    reader.on_other = [&](std::uint16_t opcode) { reading.others.push_back(opcode); };
    reader.on_oversized = [&] { ++reading.oversized; };
    std::istringstream in(bytes);
    reader.read(in, reading.error);
    if (with_rest) {
        reader.deliver_rest();
    }
    return reading;
}

/// Fills up to whole blocks.
std::string padded(Recording recording) {
    return recording.fill_to(recording.size() + recording_padding(recording.size())).text();
}

}  // namespace

TEST(RecordingReaderTest, ATimingPacketEndsAFrameAndTheLastFrameStandsThirtyMilliseconds) {
    const Reading reading = read_all(padded(Recording{}
                                                .dmx(1, {1})
                                                .dmx(2, {2})
                                                .frame_delay(25ms)
                                                .dmx(1, {3})
                                                .dmx(2, {4})
                                                .frame_delay_ms(40)
                                                .dmx(1, {5})
                                                .frame_delay(1h)));
    EXPECT_THAT(reading.packets,
                ElementsAre("1 @0 +0 f0", "2 @0 +25000000 f0 end", "1 @25000000 +0 f1",
                            "2 @25000000 +40000000 f1 end", "1 @65000000 +30000000 f2 end last"));
    EXPECT_THAT(reading.others, ElementsAre(0xFE, 0xFF, 0xFE));
    EXPECT_FALSE(reading.error);
}

TEST(RecordingReaderTest, OfSeveralTimingPacketsTheLastCountsAndOneOfNoTimeEndsAFrame) {
    const Reading reading = read_all(padded(Recording{}
                                                .frame_delay(9ms)
                                                .dmx(1, {})
                                                .frame_delay(5ns)
                                                .frame_delay_ms(0)
                                                .dmx(1, {})
                                                .frame_delay_ms(1)
                                                .frame_delay(7ns)
                                                .dmx(1, {})));
    EXPECT_THAT(reading.packets,
                ElementsAre("1 @0 +0 f0 end", "1 @0 +7 f1 end", "1 @7 +30000000 f2 end last"));
}

TEST(RecordingReaderTest, ATimeAboveTheSignedRangeIsNoDelayAndSumsAreHeldAtTheEnd) {
    Recording huge;
    huge.dmx(1, {}).raw("Art-Net").raw({0, 0xFE, 0}).fill_to(18 + 18, 0xFF);
    huge.dmx(1, {}).frame_delay(std::chrono::nanoseconds::max()).dmx(1, {}).frame_delay(1ns).dmx(1, {});
    const Reading reading = read_all(padded(huge));
    EXPECT_THAT(reading.packets, ElementsAre("1 @0 +0 f0 end", "1 @0 +9223372036854775807 f1 end",
                                             "1 @9223372036854775807 +1 f2 end",
                                             "1 @9223372036854775807 +30000000 f3 end last"));
}

TEST(RecordingReaderTest, PacketsOfOtherTypesAndOversizedOnesHaveNoTime) {
    Recording recording;
    recording.dmx(1, {}).header(0x5200).fill_to(18 + 14).header(0x1234);
    // An ArtDmx of 513 channels, as far as its header.
    recording.header(0x5000).raw({0, 14, 0, 0, 1, 0, 2, 1}).frame_delay(3ns).dmx(2, {});
    const Reading reading = read_all(padded(recording));
    EXPECT_THAT(reading.packets, ElementsAre("1 @0 +3 f0 end", "2 @3 +30000000 f1 end last"));
    EXPECT_THAT(reading.others, ElementsAre(0x5200, 0x1234, 0xFE));
    EXPECT_EQ(reading.oversized, 1);
}

TEST(RecordingReaderTest, WhatAnIncompleteLastBlockRepeatsIsMarked) {
    Recording recording;
    for (int packet = 0; packet < 27; ++packet) {  // of 19 bytes: 513
        recording.dmx(packet, {0});
    }
    const Reading reading = read_all(recording.text());
    // Packet 0 has lost its first byte, and packet 26 is cut by the buffer's end.
    ASSERT_EQ(reading.packets.size(), 27U + 25U);
    EXPECT_EQ(reading.packets[26], "26 @0 +0 f0");
    EXPECT_EQ(reading.packets[27], "1 @0 +0 f0 stale");
    EXPECT_EQ(reading.packets[51], "25 @0 +30000000 f0 end last stale");
}

TEST(RecordingReaderTest, AfterAnErrorThePacketFoundLastIsThereOnlyWhenAskedFor) {
    const std::string cut =
        Recording{}.dmx(1, {}).frame_delay(5ns).dmx(2, {}).dmx(3, {9, 9}).cut_to(70).text();
    const Reading as_played = read_all(cut);
    EXPECT_EQ(as_played.error, errc::make_error_code(errc::unexpected_end_of_input));
    EXPECT_THAT(as_played.packets, ElementsAre("1 @0 +5 f0 end"));
    EXPECT_THAT(read_all(cut, true).packets, ElementsAre("1 @0 +5 f0 end", "2 @5 +30000000 f1 end last"));
}

TEST(RecordingReaderTest, AnInputWithoutPacketsIsAnErrorAndOneWithoutArtDmxIsNot) {
    EXPECT_EQ(read_all("").error, errc::make_error_code(errc::header_not_found));
    const Reading reading = read_all(padded(Recording{}.frame_delay(1ns)));
    EXPECT_FALSE(reading.error);
    EXPECT_THAT(reading.packets, IsEmpty());
}

TEST(RecordingReaderTest, ThePacketsBytesAreThoseOfTheFile) {
    const std::vector<std::uint8_t> first = Recording{}.dmx(0x0123, {1, 2, 3}).bytes();
    const std::vector<std::uint8_t> second = Recording{}.dmx(7, std::vector<std::uint8_t>(512, 9)).bytes();
    std::vector<std::vector<std::uint8_t>> found;
    std::vector<std::uint64_t> offsets;
    RecordingReader reader;
    reader.on_packet = [&](const RecordedPacket& packet) {
        found.emplace_back(packet.bytes.begin(), packet.bytes.end());
        offsets.push_back(packet.offset);
    };
    std::istringstream in(padded(
        Recording{}.dmx(0x0123, {1, 2, 3}).frame_delay(1ns).dmx(7, std::vector<std::uint8_t>(512, 9))));
    std::error_code error;
    reader.read(in, error);
    EXPECT_THAT(found, ElementsAre(first, second));
    EXPECT_THAT(offsets, ElementsAre(0U, 39U));
}
