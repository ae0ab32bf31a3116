#include "artnet/recording_writer.h"

#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "parsed.h"

using testing::ElementsAre;
using namespace std::chrono_literals;
using namespace std::string_view_literals;

namespace {

std::vector<int> written(const std::ostringstream& out) {
    std::vector<int> bytes;
    for (const char byte : out.str()) {
        bytes.push_back(static_cast<unsigned char>(byte));
    }
    return bytes;
}

}  // namespace

TEST(RecordingWriterTest, DmxPacketHasItsEighteenHeaderBytesAndItsChannels) {
    std::ostringstream out;
    RecordingWriter(out).dmx(0x1234, std::vector<std::uint8_t>{255, 0, 7}, 9);
    EXPECT_THAT(written(out), ElementsAre('A', 'r', 't', '-', 'N', 'e', 't', 0, 0x00, 0x50, 0, 14, 9, 0, 0x34,
                                          0x12, 0, 3, 255, 0, 7));
}

TEST(RecordingWriterTest, MillisecondTimingIsALittleEndianWord) {
    std::ostringstream out;
    RecordingWriter(out).frame_delay_ms(0x01020304);
    EXPECT_THAT(written(out), ElementsAre('A', 'r', 't', '-', 'N', 'e', 't', 0, 0xFF, 0x00, 4, 3, 2, 1));
}

TEST(RecordingWriterTest, NanosecondTimingIsALittleEndianDoubleWord) {
    std::ostringstream out;
    RecordingWriter(out).frame_delay(40ms);  // 0x02625A00
    EXPECT_THAT(written(out), ElementsAre('A', 'r', 't', '-', 'N', 'e', 't', 0, 0xFE, 0x00, 0x00, 0x5A, 0x62,
                                          0x02, 0, 0, 0, 0));
}

TEST(RecordingWriterTest, ChannelsBeyondFiveHundredAndTwelveAreLeftOut) {
    std::vector<std::uint8_t> packet;
    append_artdmx(packet, 0, std::vector<std::uint8_t>(513, 1));
    ASSERT_EQ(packet.size(), 530U);
    EXPECT_EQ(packet[16], 0x02);
    EXPECT_EQ(packet[17], 0x00);
}

TEST(RecordingWriterTest, PacketsFollowEachOtherWithoutAnythingBetween) {
    std::ostringstream out;
    RecordingWriter(out).dmx(1, std::vector<std::uint8_t>{1}).frame_delay_ms(1).dmx(1, {});
    EXPECT_EQ(out.str().size(), 19U + 14U + 18U);
}

TEST(RecordingWriterTest, AppendingKeepsWhatIsThere) {
    std::vector<std::uint8_t> bytes{1, 2};
    append_artoemvfps(bytes, 5);
    ASSERT_EQ(bytes.size(), 16U);
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(bytes[2], 'A');
}

TEST(RecordingWriterTest, SyncPacketHasItsFourteenBytes) {
    std::ostringstream out;
    RecordingWriter(out).sync();
    EXPECT_THAT(written(out), ElementsAre('A', 'r', 't', '-', 'N', 'e', 't', 0, 0x00, 0x52, 0, 14, 0, 0));
}

TEST(RecordingWriterTest, PaddingFillsUpToWholeBlocksAndAddsNothingToThem) {
    for (const std::size_t channels : {0U, 1U, 475U, 476U, 477U}) {
        std::ostringstream out;
        RecordingWriter writer(out);
        writer.dmx(1, std::vector<std::uint8_t>(channels, 1)).frame_delay(1ns).pad();
        const std::size_t packets = 18 + channels + 18;
        const std::size_t expected = packets <= 512 ? 512 : 1024;
        EXPECT_EQ(out.str().size(), expected) << channels;
        EXPECT_EQ(writer.size(), expected);
        EXPECT_EQ(out.str().find_first_not_of('\0', packets), std::string::npos);
        writer.pad();
        EXPECT_EQ(writer.size(), expected) << "padded twice";
    }
}

TEST(RecordingWriterTest, APaddedRecordingRepeatsNothing) {
    std::ostringstream out;
    RecordingWriter writer(out);
    for (int packet = 0; packet < 17; ++packet) {
        writer.dmx(1, std::vector<std::uint8_t>(14, 'A'));
    }
    writer.pad();
    EXPECT_EQ(parse_recording(Recording{}.raw(out.str())).events.size(), 17U);
}

TEST(RecordingWriterTest, ARawPacketThatEndsInAPartOfAnIdentifierDoesNotHideTheNextOne) {
    // Of an unknown type, so that the reader searches its body.
    for (const std::string_view end : {"A"sv, "Ar"sv, "Art-Ne"sv, "Art-Net"sv, "xA"sv, "ArA"sv, "none"sv}) {
        std::ostringstream out;
        RecordingWriter writer(out);
        const std::vector<std::uint8_t> packet = Recording{}.header(0x1234).raw(end).bytes();
        writer.raw(packet).dmx(7, std::vector<std::uint8_t>{1}).raw(packet).pad();
        EXPECT_THAT(parse_recording(Recording{}.raw(out.str())).events,
                    ElementsAre("0 unknown 0x1234", "1 dmx 7: 1", "2 unknown 0x1234"))
            << end;
    }
}

TEST(RecordingWriterTest, ARawDmxPacketIsWrittenAsItStands) {
    const std::vector<std::uint8_t> packet = Recording{}.dmx(3, {'A'}).bytes();
    std::ostringstream out;
    RecordingWriter(out).raw_dmx(packet).raw_dmx(packet);
    const std::string once(packet.begin(), packet.end());
    EXPECT_EQ(out.str(), once + once);
}
