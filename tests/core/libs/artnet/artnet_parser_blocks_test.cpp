// What happens at the borders of the 512-byte blocks and behind a short last one.
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "parsed.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using namespace std::string_view_literals;

namespace {

constexpr std::size_t kBlock = 512;
/// Neither a byte of the identifier nor zero.
constexpr std::uint8_t kFiller = 0x55;

std::string dmx_event(std::size_t counter, int universe, const std::string& levels) {
    return std::to_string(counter) + " dmx " + std::to_string(universe) + ":" + levels;
}

/// How the scanning is defined: byte by byte, one state, no second try. Returns the opcodes found.
std::vector<std::string> scan_byte_by_byte(const std::string& input) {
    constexpr std::string_view kIdentifier = "Art-Net\0"sv;
    std::vector<std::string> events;
    std::size_t matched = 0;
    for (std::size_t pos = 0; pos < input.size(); ++pos) {
        matched = input[pos] == kIdentifier[matched] ? matched + 1 : 0;
        if (matched == kIdentifier.size() && pos + 2 < input.size()) {
            std::ostringstream text;
            text << events.size() << " unknown 0x" << std::hex
                 << (static_cast<unsigned char>(input[pos + 1]) | static_cast<unsigned char>(input[pos + 2])
                                                                      << 8);
            events.push_back(text.str());
            pos += 2;
            matched = 0;
        }
    }
    return events;
}

/// Offsets of the ArtDmx packets found, those from the stale tail with an asterisk.
std::vector<std::string> offsets_of(const Recording& recording) {
    std::vector<std::string> offsets;
    ArtNetParser parser;
    parser.on_artdmx = [&](ArtDmx&) {
        offsets.push_back(std::to_string(parser.packet_offset()) + (parser.packet_is_stale() ? "*" : ""));
    };
    std::istringstream in(recording.text());
    std::error_code ec;
    parser.parse(in, ec);
    return offsets;
}

}  // namespace

TEST(ArtNetParserBlocksTest, AnIdentifierSplitAtTheBorderIsFoundAtEverySplit) {
    for (std::size_t before = 0; before <= 8; ++before) {
        const Parsed parsed = parse_recording(
            Recording{}.fill_to(kBlock - before, kFiller).dmx(5, {1, 2, 3}).fill_to(2 * kBlock, kFiller));
        EXPECT_THAT(parsed.events, ElementsAre("0 dmx 5: 1 2 3")) << before << " bytes in the first block";
        EXPECT_FALSE(parsed.ec);
    }
}

TEST(ArtNetParserBlocksTest, ARecordMayStraddleTheBorderAtEveryByte) {
    for (std::size_t before = 8; before <= 18 + 4; ++before) {
        const Parsed parsed = parse_recording(Recording{}
                                                  .fill_to(kBlock - before, kFiller)
                                                  .dmx(6, {9, 8, 7, 6})
                                                  .dmx(7, {5})
                                                  .fill_to(2 * kBlock, kFiller));
        EXPECT_THAT(parsed.events, ElementsAre("0 dmx 6: 9 8 7 6", "1 dmx 7: 5")) << before;
        EXPECT_FALSE(parsed.ec);
    }
}

TEST(ArtNetParserBlocksTest, AFullPacketMayTouchThreeBlocks) {
    std::vector<std::uint8_t> levels(512);
    std::string text;
    for (std::size_t channel = 0; channel < levels.size(); ++channel) {
        levels[channel] = static_cast<std::uint8_t>(channel * 7);
        text += " " + std::to_string(levels[channel]);
    }
    for (std::size_t before = 1; before <= 17; ++before) {
        const Parsed parsed = parse_recording(
            Recording{}.fill_to(kBlock - before, kFiller).dmx(1, levels).fill_to(3 * kBlock, kFiller));
        EXPECT_THAT(parsed.events, ElementsAre("0 dmx 1:" + text)) << before;
        EXPECT_FALSE(parsed.ec);
    }
}

TEST(ArtNetParserBlocksTest, ARecordWhoseRestIsMissingFromTheNextBlockIsUnexpectedEnd) {
    // 10 bytes in the first block, 11 of the missing 12 in the second.
    const Parsed parsed =
        parse_recording(Recording{}.fill_to(kBlock - 10, kFiller).dmx(1, {1, 2, 3, 4}).cut_to(kBlock + 11));
    EXPECT_THAT(parsed.events, IsEmpty());
    EXPECT_EQ(parsed.ec.value(), 2);
}

TEST(ArtNetParserBlocksTest, ARecordThatEndsWithTheLastBlockIsCompleteAndCutAtTheBorderIsNot) {
    const auto whole = Recording{}.fill_to(kBlock - 19, kFiller).dmx(1, {1});
    EXPECT_THAT(parse_recording(whole).events, ElementsAre("0 dmx 1: 1"));
    EXPECT_FALSE(parse_recording(whole).ec);
    const Parsed cut = parse_recording(Recording{}.fill_to(kBlock - 8, kFiller).dmx(1, {1}).cut_to(kBlock));
    EXPECT_THAT(cut.events, IsEmpty());
    EXPECT_EQ(cut.ec.value(), 2);
}

TEST(ArtNetParserBlocksTest, ScanningFindsExactlyWhatAByteByByteScanFinds) {
    // Inputs of pieces of identifiers, whole blocks long, so that there is no stale tail. No two bytes of
    // these pieces make a known opcode.
    const std::vector<std::string_view> pieces{"A"sv,         "Ar"sv,   "Art-"sv,   "Net\0"sv,
                                               "Art-Net\0"sv, "t-Ne"sv, "Art-Ne"sv, "Art-Net\0zz"sv,
                                               "zzzzz"sv,     "\0"sv};
    std::mt19937 random(20);  // NOLINT(bugprone-random-generator-seed,cert-msc51-cpp): repeatable on purpose
    std::size_t found = 0;
    for (int round = 0; round < 300; ++round) {
        std::string input;
        while (input.size() < 4 * kBlock - 10) {
            input += pieces[random() % pieces.size()];
        }
        input.resize(4 * kBlock, 'z');
        const std::vector<std::string> expected = scan_byte_by_byte(input);
        found += expected.size();
        const Parsed parsed = parse_recording(Recording{}.raw(input));
        ASSERT_EQ(parsed.events, expected) << "round " << round;
        ASSERT_FALSE(parsed.ec);
    }
    EXPECT_GT(found, 1000U);
}

TEST(ArtNetParserBlocksTest, WholeBlocksAreDeliveredOnce) {
    Recording recording;
    std::vector<std::string> expected;
    for (std::size_t packet = 0; packet < 32; ++packet) {  // 32 packets of 32 bytes
        recording.dmx(static_cast<int>(packet), std::vector<std::uint8_t>(14, 1));
        expected.push_back(dmx_event(packet, static_cast<int>(packet), " 1 1 1 1 1 1 1 1 1 1 1 1 1 1"));
    }
    ASSERT_EQ(recording.size(), 2 * kBlock);
    const Parsed parsed = parse_recording(recording);
    EXPECT_THAT(parsed.events, ElementsAreArray(expected));
    EXPECT_FALSE(parsed.ec);
}

TEST(ArtNetParserBlocksTest, PacketsThatLieWholeInTheStaleTailAreDeliveredAgain) {
    // 17 packets of 32 bytes: the second block has 32 bytes, behind them stand packets 1 to 15 of the first,
    // the last of them up to the buffer's last byte.
    Recording recording;
    std::vector<std::string> expected;
    for (int packet = 0; packet < 17; ++packet) {
        recording.dmx(packet, std::vector<std::uint8_t>(14, 0));
        expected.push_back(dmx_event(expected.size(), packet, " 0 0 0 0 0 0 0 0 0 0 0 0 0 0"));
    }
    for (int packet = 1; packet < 16; ++packet) {
        expected.push_back(dmx_event(expected.size(), packet, " 0 0 0 0 0 0 0 0 0 0 0 0 0 0"));
    }
    const Parsed parsed = parse_recording(recording);
    EXPECT_THAT(parsed.events, ElementsAreArray(expected));
    EXPECT_FALSE(parsed.ec);
}

TEST(ArtNetParserBlocksTest, AStalePacketThatRunsPastTheBufferIsDroppedWithoutAnError) {
    // 30 packets of 20 bytes: packet 25 begins at byte 500. The second block has 88 bytes; behind them stand
    // packets 5 to 24 whole and the beginning of packet 25, whose body would run past the buffer.
    Recording recording;
    std::vector<std::string> expected;
    for (int packet = 0; packet < 30; ++packet) {
        recording.dmx(packet, {3, 4});
        expected.push_back(dmx_event(expected.size(), packet, " 3 4"));
    }
    for (int packet = 5; packet < 25; ++packet) {
        expected.push_back(dmx_event(expected.size(), packet, " 3 4"));
    }
    const Parsed parsed = parse_recording(recording);
    EXPECT_THAT(parsed.events, ElementsAreArray(expected));
    EXPECT_FALSE(parsed.ec);
}

TEST(ArtNetParserBlocksTest, AStalePacketWhoseChannelsRunPastTheBufferIsDroppedWithoutAnError) {
    // The stale packet's header is whole, its 10 channels are not: 5 of them stood in the second block.
    const Parsed parsed = parse_recording(
        Recording{}.fill_to(kBlock - 23, kFiller).dmx(2, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}).dmx(3, {1}));
    EXPECT_THAT(parsed.events, ElementsAre("0 dmx 2: 1 2 3 4 5 6 7 8 9 10", "1 dmx 3: 1"));
    EXPECT_FALSE(parsed.ec);
}

TEST(ArtNetParserBlocksTest, AStaleIdentifierWithoutRoomForAnOpcodeIsDroppedWithoutAnError) {
    for (const std::size_t room : {0U, 1U}) {
        const Parsed parsed =
            parse_recording(Recording{}.fill_to(kBlock - 8 - room, kFiller).header(0x1234).raw("end"sv));
        EXPECT_THAT(parsed.events, ElementsAre("0 unknown 0x1234")) << room;
        EXPECT_FALSE(parsed.ec);
        EXPECT_EQ(parsed.packets, 1U);
    }
}

TEST(ArtNetParserBlocksTest, AStaleOpcodeThatJustFitsIsDeliveredAgain) {
    const Parsed parsed =
        parse_recording(Recording{}.fill_to(kBlock - 10, kFiller).header(0x1234).raw("end"sv));
    EXPECT_THAT(parsed.events, ElementsAre("0 unknown 0x1234", "1 unknown 0x1234"));
    EXPECT_FALSE(parsed.ec);
}

TEST(ArtNetParserBlocksTest, AnIdentifierCompletedByTheZerosOfAFreshBufferIsFound) {
    // Seven real bytes; the terminating zero and the opcode are the buffer's own zeros.
    const Parsed parsed = parse_recording(Recording{}.raw("Art-Net"sv));
    EXPECT_THAT(parsed.events, ElementsAre("0 unknown 0x0"));
    EXPECT_FALSE(parsed.ec);
}

TEST(ArtNetParserBlocksTest, AnIdentifierCompletedByStaleBytesIsFoundWithTheirOpcodeAtEverySplit) {
    constexpr std::string_view kHeader = "Art-Net\0\x34\x12"sv;
    for (std::size_t real = 1; real < 8; ++real) {
        // The first block holds the end of a header where the second, short one, breaks off in it.
        Recording recording;
        recording.fill_to(real, kFiller).raw(kHeader.substr(real)).fill_to(kBlock, kFiller);
        ASSERT_EQ(parse_recording(recording).ec.value(), 3) << "no identifier in the first block";
        recording.raw(kHeader.substr(0, real));
        const Parsed parsed = parse_recording(recording);
        EXPECT_THAT(parsed.events, ElementsAre("0 unknown 0x1234")) << real;
        EXPECT_FALSE(parsed.ec);
    }
}

TEST(ArtNetParserBlocksTest, AnIdentifierThatEndsWithTheInputHasNoOpcode) {
    // The read position is at the byte count, not beyond it: this is the recording's own record, cut off.
    const Parsed parsed = parse_recording(Recording{}.dmx(1, {1}).raw("Art-Net\0"sv));
    EXPECT_THAT(parsed.events, ElementsAre("0 dmx 1: 1"));
    EXPECT_EQ(parsed.ec.value(), 2);
}

TEST(ArtNetParserBlocksTest, OffsetsAreThoseOfTheIdentifiersWhereverTheBordersLie) {
    for (std::size_t before = 0; before <= 24; ++before) {
        const auto recording =
            Recording{}.fill_to(2 * kBlock - before, kFiller).dmx(1, {1, 2}).dmx(1, {3}).fill_to(3 * kBlock);
        EXPECT_THAT(offsets_of(recording), ElementsAre(std::to_string(2 * kBlock - before),
                                                       std::to_string(2 * kBlock - before + 20)))
            << before << " bytes before the border";
    }
}

TEST(ArtNetParserBlocksTest, OffsetsOfStalePacketsLieBehindTheEndOfTheInput) {
    // 17 packets of 32 bytes are 544; packet 1 of the first block, at byte 32 of the buffer, is the first to
    // be found again.
    Recording recording;
    for (int packet = 0; packet < 17; ++packet) {
        recording.dmx(packet, std::vector<std::uint8_t>(14, 0));
    }
    const std::vector<std::string> offsets = offsets_of(recording);
    ASSERT_EQ(offsets.size(), 32U);
    EXPECT_EQ(offsets[16], "512");
    EXPECT_EQ(offsets[17], "544*");
    EXPECT_EQ(offsets[31], "992*");
}

TEST(ArtNetParserBlocksTest, AfterwardsTheOffsetIsThatOfThePacketThatIsCutShortAndAllIsRead) {
    ArtNetParser parser;
    std::istringstream in(Recording{}.dmx(1, {1}).dmx(2, {2, 3}).cut_to(38).text());
    std::error_code ec;
    parser.parse(in, ec);
    EXPECT_EQ(ec.value(), 2);
    EXPECT_EQ(parser.packet_offset(), 19U);
    EXPECT_EQ(parser.bytes_read(), 38U);
}

TEST(ArtNetParserBlocksTest, ASecondParseCountsItsOffsetsAnew) {
    ArtNetParser parser;
    const std::string text = Recording{}.fill_to(kBlock, kFiller).dmx(1, {1}).fill_to(2 * kBlock).text();
    for (int round = 0; round < 2; ++round) {
        std::istringstream in(text);
        std::error_code ec;
        parser.parse(in, ec);
        EXPECT_EQ(parser.packet_offset(), kBlock);
        EXPECT_EQ(parser.bytes_read(), 2 * kBlock);
    }
}
