// ArtPollReply, whose length follows the size of the last read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "parsed.h"
#include "poll_reply.h"

using testing::ElementsAre;
using namespace std::string_view_literals;

namespace {

ArtPollReply first_reply(const Recording& recording) {
    ArtPollReply result{};
    int calls = 0;
    ArtNetParser parser;
    parser.on_artpollreply = [&](ArtPollReply& reply) {
        if (calls++ == 0) {
            result = reply;
        }
    };
    std::istringstream in(recording.text());
    std::error_code ec;
    parser.parse(in, ec);
    EXPECT_GE(calls, 1);
    return result;
}

}  // namespace

TEST(ArtNetParserReplyTest, PollReplyFieldsLieWhereTheyDoOnTheWire) {
    const ArtPollReply reply = first_reply(poll_reply());
    EXPECT_THAT(reply.IpAddress, ElementsAre(10, 0, 0, 7));
    EXPECT_EQ(+reply.Port, 0x1936) << "as stored";
    EXPECT_EQ(+reply.VersInfo, 0x0102);
    EXPECT_EQ(reply.NetSwitch, 3);
    EXPECT_EQ(reply.SubSwitch, 4);
    EXPECT_EQ(+reply.Oem, 0x0506);
    EXPECT_EQ(reply.UbeaVersion, 7);
    EXPECT_EQ(reply.Status1, 8);
    EXPECT_EQ(+reply.EstaMan, 0x7FF0) << "as stored";
    EXPECT_STREQ(reply.ShortName, "short");
    EXPECT_STREQ(reply.LongName, "long");
    EXPECT_STREQ(reply.NodeReport, "report");
    EXPECT_EQ(+reply.NumPorts, 4);
    EXPECT_THAT(reply.PortTypes, ElementsAre(11, 12, 13, 14));
    EXPECT_THAT(reply.GoodInput, ElementsAre(21, 22, 23, 24));
    EXPECT_THAT(reply.GoodOutput, ElementsAre(31, 32, 33, 34));
    EXPECT_THAT(reply.SwIn, ElementsAre(41, 42, 43, 44));
    EXPECT_THAT(reply.SwOut, ElementsAre(51, 52, 53, 54));
    EXPECT_EQ(reply.SwVideo, 61);
    EXPECT_EQ(reply.SwMacro, 62);
    EXPECT_EQ(reply.SwRemote, 63);
    EXPECT_THAT(reply.Spare, ElementsAre(71, 72, 73));
    EXPECT_EQ(reply.Style, 81);
    EXPECT_THAT(reply.Mac, ElementsAre(0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5));
    EXPECT_THAT(reply.BindIp, ElementsAre(10, 0, 0, 8));
    EXPECT_EQ(reply.BindIndex, 91);
    EXPECT_EQ(reply.Status2, 92);
    EXPECT_THAT(reply.Filler, testing::Each(0x99));
}

TEST(ArtNetParserReplyTest, PollReplyTextsAreTerminatedInTheirLastByte) {
    const ArtPollReply reply = first_reply(Recording{}.header(0x2100).fill_to(239, 'x'));
    EXPECT_EQ(std::string(reply.ShortName), std::string(17, 'x'));
    EXPECT_EQ(std::string(reply.LongName), std::string(63, 'x'));
    EXPECT_EQ(std::string(reply.NodeReport), std::string(63, 'x'));
}

TEST(ArtNetParserReplyTest, PollReplyBodyFollowsTheSizeOfASmallRead) {
    // 100 bytes read: 90 of them are body, and the reply is complete.
    const auto small = Recording{}.raw(poll_reply().text()).cut_to(100);
    EXPECT_EQ(parse_recording(small).ec, std::error_code());
    const ArtPollReply reply = first_reply(small);
    EXPECT_STREQ(reply.LongName, "long");
    EXPECT_EQ(+reply.NumPorts, 0);
    // Behind a packet of 20 bytes the read has 120 bytes: 110 are asked for, 90 are there.
    const Parsed behind = parse_recording(Recording{}.dmx(1, {1, 2}).raw(small.text()));
    EXPECT_THAT(behind.events, ElementsAre("0 dmx 1: 1 2"));
    EXPECT_EQ(behind.ec.value(), 2);
}

TEST(ArtNetParserReplyTest, PollReplyBodyIsNeverLongerThanTheRecord) {
    // A read of exactly 239 bytes and one of more both give 229 body bytes: what follows is still found.
    const Parsed exact = parse_recording(poll_reply());
    EXPECT_THAT(exact.events, ElementsAre("0 pollreply short"));
    EXPECT_FALSE(exact.ec);
    const Parsed followed = parse_recording(Recording{}.raw(poll_reply().text()).dmx(1, {7}));
    EXPECT_THAT(followed.events, ElementsAre("0 pollreply short", "1 dmx 1: 7"));
    EXPECT_FALSE(followed.ec);
}

TEST(ArtNetParserReplyTest, PollReplyAfterAReadOfLessThanTenBytesHasNoBody) {
    // The opcode stands in a second block of 5 bytes.
    const Parsed parsed =
        parse_recording(Recording{}.fill_to(504).raw("Art-Net\0"sv).raw({0x00, 0x21, 'a', 'b', 'c'}));
    EXPECT_THAT(parsed.events, ElementsAre("0 pollreply "));
    EXPECT_FALSE(parsed.ec);
}
