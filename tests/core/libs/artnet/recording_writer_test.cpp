#include "artnet/recording_writer.h"

#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using namespace std::chrono_literals;

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
