// Records, dispatch and failures.
#include <stdexcept>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "parsed.h"
#include "poll_reply.h"

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;
using namespace std::string_view_literals;

namespace {

// Whoever owns a parser owns it by its own type.
static_assert(!std::has_virtual_destructor_v<ArtNetParser>);
static_assert(std::is_polymorphic_v<ArtNetParser>);
static_assert(!std::is_copy_constructible_v<ArtNetParser>);

}  // namespace

TEST(ArtNetParserTest, EmptyInputIsHeaderNotFoundAndCallsNothing) {
    const Parsed parsed = parse_recording(Recording{});
    EXPECT_EQ(parsed.ec, errc::header_not_found);
    EXPECT_EQ(parsed.ec.value(), 3);
    EXPECT_THAT(parsed.events, IsEmpty());
    EXPECT_EQ(parsed.packets, 0U);
}

TEST(ArtNetParserTest, InputWithoutIdentifierIsHeaderNotFound) {
    const Parsed parsed = parse_recording(Recording{}.raw("Art-Nex and so on"sv).fill_to(2000, 'r'));
    EXPECT_EQ(parsed.ec.value(), 3);
    EXPECT_THAT(parsed.events, IsEmpty());
}

TEST(ArtNetParserTest, OneDmxPacketIsOneCallWithCounterZeroAndACleanReturn) {
    const Parsed parsed = parse_recording(Recording{}.dmx(3, {255, 0, 7}));
    EXPECT_THAT(parsed.events, ElementsAre("0 dmx 3: 255 0 7"));
    EXPECT_FALSE(parsed.ec);
    EXPECT_EQ(parsed.packets, 1U);
}

TEST(ArtNetParserTest, DmxRecordHasItsLengthInHostOrderAndItsOtherFieldsAsStored) {
    const auto packet =
        Recording{}.header(0x5000).raw({0x00, 0x0E, 0x21, 0x22, 0x34, 0x92, 0x00, 0x03}).raw({9, 8, 7});
    int calls = 0;
    ArtNetParser parser;
    parser.on_artdmx = [&](ArtDmx& dmx) {
        ++calls;
        EXPECT_EQ(std::string(dmx.Header.ID, 8), std::string("Art-Net\0", 8));
        EXPECT_EQ(dmx.Header.OpCode, 0x5000);
        EXPECT_EQ(dmx.ProtVerHi, 0x00);
        EXPECT_EQ(dmx.ProtVerLo, 0x0E);
        EXPECT_EQ(dmx.Sequence, 0x21);
        EXPECT_EQ(dmx.Physical, 0x22);
        EXPECT_EQ(dmx.SubUni, 0x34);
        EXPECT_EQ(dmx.Net, 0x92);
        EXPECT_EQ(dmx.Length, 3);
        EXPECT_EQ(universe_of(dmx), 0x9234) << "all 16 bits, nothing masked";
    };
    std::istringstream in(packet.text());
    std::error_code ec;
    parser.parse(in, ec);
    EXPECT_EQ(calls, 1);
}

TEST(ArtNetParserTest, ConvertToRawGivesThePacketBackByteForByte) {
    const auto packet = Recording{}.dmx(0x1234, std::vector<std::uint8_t>(300, 0x5A));
    std::vector<std::uint8_t> raw;
    ArtNetParser parser;
    parser.on_artdmx = [&](ArtDmx& dmx) {
        const std::size_t size = 18U + dmx.Length;
        parser.convert_to_raw(dmx);
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&dmx);
        raw.assign(bytes, bytes + size);
    };
    std::istringstream in(packet.text());
    std::error_code ec;
    parser.parse(in, ec);
    EXPECT_EQ(raw, packet.bytes());
}

TEST(ArtNetParserTest, DmxLengthsOfZeroOddAndFullAreDeliveredAsTheyAre) {
    const Parsed parsed =
        parse_recording(Recording{}.dmx(1, {}).dmx(2, {5}).dmx(3, std::vector<std::uint8_t>(512, 1)));
    ASSERT_EQ(parsed.events.size(), 3U);
    EXPECT_EQ(parsed.events[0], "0 dmx 1:");
    EXPECT_EQ(parsed.events[1], "1 dmx 2: 5");
    EXPECT_EQ(parsed.events[2].size(), std::string("2 dmx 3:").size() + 512 * 2);
    EXPECT_FALSE(parsed.ec);
}

TEST(ArtNetParserTest, OversizedDmxIsReportedNotDeliveredAndItsDataAreSearched) {
    const Parsed parsed = parse_recording(Recording{}
                                              .header(0x5000)
                                              .raw({0, 14, 0, 0, 1, 0, 0x02, 0x01})  // Length 513
                                              .raw({1, 2, 3})
                                              .dmx(9, {4})
                                              .fill_to(18 + 513)
                                              .dmx(2, {6}));
    EXPECT_THAT(parsed.events, ElementsAre("0 error 4", "1 dmx 9: 4", "2 dmx 2: 6"));
    EXPECT_FALSE(parsed.ec);
}

TEST(ArtNetParserTest, OversizedDmxWithoutErrorSlotIsSkipped) {
    ArtNetParser parser;
    int calls = 0;
    parser.on_artdmx = [&](ArtDmx&) { ++calls; };
    std::istringstream in(Recording{}.header(0x5000).raw({0, 14, 0, 0, 1, 0, 0xFF, 0xFF}).dmx(2, {6}).text());
    std::error_code ec;
    parser.parse(in, ec);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(ec);
}

TEST(ArtNetParserTest, TimingPacketsAreLittleEndianCounts) {
    const Parsed parsed = parse_recording(Recording{}
                                              .header(0x00FF)
                                              .raw({0x28, 0x01, 0x00, 0x80})
                                              .header(0x00FE)
                                              .raw({0x00, 0x5A, 0x62, 0x02, 0x01, 0x00, 0x00, 0x80}));
    EXPECT_THAT(parsed.events, ElementsAre("0 ms 2147483944", "1 ns 9223372041189743104"));
    EXPECT_FALSE(parsed.ec);
}

TEST(ArtNetParserTest, EveryKnownTypeReachesItsOwnSlotInFileOrder) {
    const Parsed parsed = parse_recording(Recording{}
                                              .header(0x2000)
                                              .raw({0, 14, 6, 0x10})
                                              .dmx(1, {1})
                                              .frame_delay_ms(40)
                                              .frame_delay(40ms)
                                              .header(0x9900)
                                              .raw({0, 14, 0, 0, 0xFF, 0xFF, 2, 3})
                                              .raw(poll_reply().text()));
    EXPECT_THAT(parsed.events, ElementsAre("0 poll", "1 dmx 1: 1", "2 ms 40", "3 ns 40000000",
                                           "4 trigger 2 3", "5 pollreply short"));
    EXPECT_FALSE(parsed.ec);
}

TEST(ArtNetParserTest, EmptySlotsDropTheirRecordsAndTheCounterGoesOn) {
    std::vector<std::uint32_t> counters;
    ArtNetParser parser;
    parser.on_artdmx = [&](ArtDmx&) { counters.push_back(parser.packet_counter); };
    std::istringstream in(Recording{}
                              .header(0x2000)
                              .raw({0, 14, 6, 0x10})
                              .frame_delay_ms(1)
                              .frame_delay(1ns)
                              .header(0x9900)
                              .raw({0, 14, 0, 0, 0, 0, 0, 0})
                              .raw(poll_reply().text())
                              .header(0x1234)
                              .dmx(1, {1})
                              .text());
    std::error_code ec;
    parser.parse(in, ec);
    EXPECT_FALSE(ec);
    EXPECT_THAT(counters, ElementsAre(6U));
    EXPECT_EQ(parser.packet_counter, 7U);
}

TEST(ArtNetParserTest, PollIsFourRawBytes) {
    int calls = 0;
    ArtNetParser parser;
    parser.on_artpoll = [&](ArtPoll& poll) {
        ++calls;
        EXPECT_EQ(poll.ProtVerHi, 1);
        EXPECT_EQ(poll.ProtVerLo, 2);
        EXPECT_EQ(poll.Flags, 3);
        EXPECT_EQ(poll.DiagPriority, 4);
    };
    std::istringstream in(Recording{}.header(0x2000).raw({1, 2, 3, 4}).text());
    std::error_code ec;
    parser.parse(in, ec);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(ec);
}

TEST(ArtNetParserTest, TriggerIsReadUpToItsSubKeyWithVersionAndOemCodeInHostOrder) {
    int calls = 0;
    ArtNetParser parser;
    parser.on_trigger = [&](ArtTrigger& trigger) {
        ++calls;
        EXPECT_EQ(trigger.ProtVer, 0x000E);
        EXPECT_EQ(trigger.Filler1, 1);
        EXPECT_EQ(trigger.Filler2, 2);
        EXPECT_EQ(trigger.OemCode, 0x1234);
        EXPECT_EQ(trigger.Key, 5);
        EXPECT_EQ(trigger.SubKey, 6);
    };
    std::istringstream in(Recording{}.header(0x9900).raw({0, 14, 1, 2, 0x12, 0x34, 5, 6}).text());
    std::error_code ec;
    parser.parse(in, ec);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(ec) << "the 512 data bytes are not asked for";
}

TEST(ArtNetParserTest, UnknownOpcodeReachesItsSlotWithTheWholeHeaderAndCostsOneCount) {
    std::string id;
    ArtNetParser parser;
    std::vector<std::string> events;
    record_events(parser, events);
    const auto unknown = parser.on_unknown;
    parser.on_unknown = [&](ArtHeader& header) {
        id.assign(header.ID, sizeof header.ID);
        unknown(header);
    };
    std::istringstream in(Recording{}.dmx(1, {1}).header(0x8100).raw("body"sv).dmx(1, {2}).text());
    std::error_code ec;
    parser.parse(in, ec);
    EXPECT_THAT(events, ElementsAre("0 dmx 1: 1", "1 unknown 0x8100", "2 dmx 1: 2"));
    EXPECT_EQ(id, std::string("Art-Net\0", 8));
    EXPECT_FALSE(ec);
}

TEST(ArtNetParserTest, NeighboursOfKnownOpcodesAreUnknown) {
    const Parsed parsed = parse_recording(
        Recording{}.header(0x2001).header(0x2101).header(0x5001).header(0x00FD).header(0x0100).header(
            0x9901));
    EXPECT_THAT(parsed.events, ElementsAre("0 unknown 0x2001", "1 unknown 0x2101", "2 unknown 0x5001",
                                           "3 unknown 0xfd", "4 unknown 0x100", "5 unknown 0x9901"));
}

namespace {

// Neither this class nor its base is ever destroyed through the base, see there.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
/// Takes the unknown packets over and fails on each.
class Refusing final : public ArtNetParser {
public:
    std::vector<std::uint16_t> opcodes;

private:
    void parse_unknown(ArtHeader& header, std::istream& /*in*/, std::error_code& ec) override {
        opcodes.push_back(header.OpCode);
        ec = std::make_error_code(std::errc::not_supported);
    }
};
#pragma GCC diagnostic pop

}  // namespace

TEST(ArtNetParserTest, ADerivedParserMayTakeUnknownPacketsOver) {
    Refusing parser;
    std::istringstream in(Recording{}.header(0x8100).header(0x8200).text());
    std::error_code ec;
    parser.parse(in, ec);
    EXPECT_THAT(parser.opcodes, ElementsAre(0x8100));
    EXPECT_EQ(ec, std::errc::not_supported) << "an error it sets ends the parsing";
}

TEST(ArtNetParserTest, LetterABeforeAnIdentifierHidesThePacket) {
    const Parsed parsed = parse_recording(Recording{}.dmx(1, {1}).raw("A"sv).dmx(1, {2}).dmx(1, {3}));
    EXPECT_THAT(parsed.events, ElementsAre("0 dmx 1: 1", "1 dmx 1: 3"));
    EXPECT_FALSE(parsed.ec);
}

TEST(ArtNetParserTest, ABrokenIdentifierHidesTheOneThatBreaksIt) {
    const Parsed parsed =
        parse_recording(Recording{}.raw("Art-Ne"sv).dmx(1, {1}).raw("Art-Nex"sv).dmx(1, {2}));
    EXPECT_THAT(parsed.events, ElementsAre("0 dmx 1: 2"));
}

TEST(ArtNetParserTest, ARecordCutAnywhereIsUnexpectedEndAfterAllEarlierPackets) {
    const std::string whole = Recording{}.dmx(7, {1, 2, 3, 4}).text();
    for (std::size_t kept = 8; kept < whole.size(); ++kept) {
        const Parsed parsed = parse_recording(Recording{}.dmx(1, {9}).raw(whole).cut_to(19 + kept));
        EXPECT_THAT(parsed.events, ElementsAre("0 dmx 1: 9")) << kept;
        EXPECT_EQ(parsed.ec.value(), 2) << kept;
    }
}

TEST(ArtNetParserTest, CutTimingPollTriggerRecordsAreUnexpectedEnd) {
    for (const std::uint16_t opcode : std::vector<std::uint16_t>{0x00FF, 0x00FE, 0x2000, 0x9900, 0x5000}) {
        const Parsed parsed = parse_recording(Recording{}.header(opcode).raw({0, 0, 0}));
        EXPECT_THAT(parsed.events, IsEmpty()) << opcode;
        EXPECT_EQ(parsed.ec.value(), 2) << opcode;
    }
}

TEST(ArtNetParserTest, StopEndsTheParsingAfterTheCurrentRecordWithoutAnError) {
    ArtNetParser parser;
    int calls = 0;
    parser.on_artdmx = [&](ArtDmx&) {
        if (++calls == 2) {
            parser.stop();
        }
    };
    std::istringstream in(Recording{}.dmx(1, {1}).dmx(1, {2}).dmx(1, {3}).text());
    std::error_code ec;
    parser.parse(in, ec);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(parser.packet_counter, 2U);
    EXPECT_FALSE(ec);
}

TEST(ArtNetParserTest, ASecondParseStartsWithACounterOfZeroAndNoHalfMatch) {
    Parsed result;
    ArtNetParser parser;
    record_events(parser, result.events);
    std::istringstream first(Recording{}.dmx(1, {1}).fill_to(508).raw("Art-"sv).text());
    parser.parse(first, result.ec);
    std::istringstream second(Recording{}.raw("Net\0\x34\x12"sv).dmx(2, {2}).fill_to(512).text());
    parser.parse(second, result.ec);
    EXPECT_THAT(result.events, ElementsAre("0 dmx 1: 1", "0 dmx 2: 2"));
    EXPECT_FALSE(result.ec);
}

TEST(ArtNetParserTest, AnExceptionOfACallbackPassesThrough) {
    ArtNetParser parser;
    parser.on_artdmx = [](ArtDmx&) { throw std::runtime_error("enough"); };
    std::istringstream in(Recording{}.dmx(1, {1}).text());
    std::error_code ec;
    EXPECT_THROW(parser.parse(in, ec), std::runtime_error);
}

TEST(ArtNetParserTest, AnErrorSetOnEntryEndsTheParsingAtOnce) {
    Parsed result;
    ArtNetParser parser;
    record_events(parser, result.events);
    result.ec = std::make_error_code(std::errc::io_error);
    std::istringstream in(Recording{}.dmx(1, {1}).text());
    parser.parse(in, result.ec);
    EXPECT_THAT(result.events, IsEmpty());
    EXPECT_EQ(result.ec, std::errc::io_error);
}
