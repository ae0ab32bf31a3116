// ArtPoll and ArtPollReply as datagrams.
#include "artnet/poll.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "artnet/universe_ranges.h"
#include "poll_reply.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

/// The whole reply of poll_reply.h, cut to `size` bytes.
Bytes reply_of(std::size_t size) {
    Bytes bytes = poll_reply().bytes();
    bytes.resize(size, 0xEE);
    return bytes;
}

}  // namespace

TEST(PollTest, APollIsFourteenBytesThatAskForRepliesOnChange) {
    EXPECT_THAT(artnet::encode_poll(), ElementsAre('A', 'r', 't', '-', 'N', 'e', 't', 0,  // ID
                                                   0x00, 0x20,                            // OpCode
                                                   0, 14,                                 // ProtVer
                                                   0x02,                                  // Flags
                                                   0));                                   // DiagPriority
}

TEST(PollTest, PollsOfAllVersionsAreRead) {
    Bytes poll{'A', 'r', 't', '-', 'N', 'e', 't', 0, 0x00, 0x20, 0, 14, 0x06, 0x10};
    const auto read = artnet::decode_poll(poll);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->Flags, 0x06);
    EXPECT_EQ(read->DiagPriority, 0x10);
    // The fourth version's range of port-addresses.
    poll.insert(poll.end(), {0x12, 0x34, 0x00, 0x00});
    EXPECT_TRUE(artnet::decode_poll(poll));
    poll.resize(13);
    EXPECT_FALSE(artnet::decode_poll(poll));
    poll = {'A', 'r', 't', '-', 'N', 'e', 't', 0, 0x00, 0x21, 0, 14, 0, 0};
    EXPECT_FALSE(artnet::decode_poll(poll)) << "another opcode";
    poll = {'a', 'r', 't', '-', 'n', 'e', 't', 0, 0x00, 0x20, 0, 14, 0, 0};
    EXPECT_FALSE(artnet::decode_poll(poll)) << "another identifier";
    EXPECT_FALSE(artnet::decode_poll({}));
}

TEST(PollTest, AReplysFieldsLieWhereTheyDoOnTheWire) {
    const auto reply = artnet::decode_poll_reply(reply_of(239));
    ASSERT_TRUE(reply);
    EXPECT_THAT(reply->IpAddress, ElementsAre(10, 0, 0, 7));
    EXPECT_EQ(+reply->Port, 6454);
    EXPECT_EQ(+reply->VersInfo, 0x0102);
    EXPECT_EQ(reply->NetSwitch, 3);
    EXPECT_EQ(reply->SubSwitch, 4);
    EXPECT_EQ(+reply->Oem, 0x0506);
    EXPECT_EQ(+reply->EstaMan, 0x7FF0);
    EXPECT_STREQ(reply->ShortName, "short");
    EXPECT_STREQ(reply->LongName, "long");
    EXPECT_STREQ(reply->NodeReport, "report");
    EXPECT_EQ(+reply->NumPorts, 4);
    EXPECT_THAT(reply->PortTypes, ElementsAre(11, 12, 13, 14));
    EXPECT_THAT(reply->SwOut, ElementsAre(51, 52, 53, 54));
    EXPECT_THAT(reply->Mac, ElementsAre(0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5));
    EXPECT_THAT(reply->BindIp, ElementsAre(10, 0, 0, 8));
    EXPECT_EQ(reply->BindIndex, 91);
    EXPECT_EQ(reply->Status2, 92);
}

TEST(PollTest, AReplyIsEncodedByteForByteAsItWasRead) {
    const Bytes bytes = poll_reply().bytes();
    auto reply = artnet::decode_poll_reply(bytes);
    ASSERT_TRUE(reply);
    EXPECT_THAT(artnet::encode_poll_reply(*reply), ElementsAreArray(bytes));
    // Identifier and opcode need not be filled in.
    reply->Header = {};
    EXPECT_THAT(artnet::encode_poll_reply(*reply), ElementsAreArray(bytes));
}

TEST(PollTest, ShortRepliesOfOldNodesLackTheBinding) {
    const auto first_version = artnet::decode_poll_reply(reply_of(207));
    ASSERT_TRUE(first_version);
    EXPECT_EQ(first_version->Mac[5], 0xA5);
    EXPECT_THAT(first_version->BindIp, ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(first_version->BindIndex, 0);
    const auto third_version = artnet::decode_poll_reply(reply_of(213));
    ASSERT_TRUE(third_version);
    EXPECT_EQ(third_version->BindIndex, 91);
    EXPECT_EQ(third_version->Filler[0], 0);
}

TEST(PollTest, RepliesOfAnyOtherLengthAreSafe) {
    for (std::size_t size = 0; size < 207; ++size) {
        EXPECT_FALSE(artnet::decode_poll_reply(reply_of(size))) << size;
    }
    for (std::size_t size = 207; size < 300; ++size) {
        ASSERT_TRUE(artnet::decode_poll_reply(reply_of(size))) << size;
    }
    EXPECT_EQ(artnet::decode_poll_reply(reply_of(1400))->Status2, 92);
    EXPECT_FALSE(artnet::decode_poll_reply(Bytes(239))) << "no identifier";
}

TEST(PollTest, TextsOfAReplyAreTerminated) {
    const auto reply = artnet::decode_poll_reply(Recording{}.header(0x2100).fill_to(239, 'x').bytes());
    ASSERT_TRUE(reply);
    EXPECT_EQ(std::string(reply->ShortName), std::string(17, 'x'));
    EXPECT_EQ(std::string(reply->LongName), std::string(63, 'x'));
    EXPECT_EQ(std::string(reply->NodeReport), std::string(63, 'x'));
}

TEST(PollTest, UniversesAreThoseOfTheOutputPorts) {
    ArtPollReply reply{};
    reply.NetSwitch = 0x12;
    reply.SubSwitch = 0x03;
    // Said to have none, as some nodes do.
    reply.NumPorts = 0;
    reply.PortTypes = {0xC5, 0x80, 0x45, 0x85};
    // The upper bits are no part of the address.
    reply.SwOut = {0x0F, 0x04, 0x01, 0x15};
    EXPECT_THAT(artnet::output_universes(reply), ElementsAre(0x1234, 0x1235, 0x123F));
    reply.SwOut = {1, 1, 1, 1};
    EXPECT_THAT(artnet::output_universes(reply), ElementsAre(0x1231));
    reply.NetSwitch = 0xFF;
    reply.SubSwitch = 0xFF;
    reply.SwOut[0] = 0xFF;
    EXPECT_THAT(artnet::output_universes(reply), ElementsAre(0x7FF1, 0x7FFF));
    reply.PortTypes = {0x40, 0x45, 0, 0x05};
    EXPECT_THAT(artnet::output_universes(reply), IsEmpty()) << "inputs";
}

TEST(UniverseRangesTest, TheTextIsTheShortest) {
    EXPECT_EQ(artnet::universe_ranges_text({}), "");
    EXPECT_EQ(artnet::universe_ranges_text(std::vector<std::uint16_t>{7}), "7");
    EXPECT_EQ(artnet::universe_ranges_text(std::vector<std::uint16_t>{0, 1, 2, 5, 7, 8}), "0-2,5,7-8");
    EXPECT_EQ(artnet::universe_ranges_text(std::vector<std::uint16_t>{32765, 32766, 32767}), "32765-32767");
}
