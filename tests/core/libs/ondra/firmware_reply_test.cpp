#include "ondra/firmware_reply.h"

#include <gtest/gtest.h>

namespace {

using ondra::device::parse_memory_reply;
using ondra::device::parse_otp_reply;

TEST(OtpReplyTest, RowGivesItsValue) {
    const char* const reply = "27:00001f1f\n28:00000000a1b2c3d4\n29:ffff0000\n30:00a02082\n";
    EXPECT_EQ(parse_otp_reply(reply, 28), "00000000a1b2c3d4");
    EXPECT_EQ(parse_otp_reply(reply, 30), "00a02082");
    EXPECT_EQ(parse_otp_reply(reply, 31), "");
}

TEST(OtpReplyTest, RowWithoutAValueIsNoMatch) {
    EXPECT_EQ(parse_otp_reply("28:\n29:x\n", 28), "");
    EXPECT_EQ(parse_otp_reply("28:  \n", 28), "");
    EXPECT_EQ(parse_otp_reply("28:\n28:later\n", 28), "later");
}

TEST(OtpReplyTest, FirstMatchWins) {
    EXPECT_EQ(parse_otp_reply("28:one\n28:two\n", 28), "one");
}

TEST(OtpReplyTest, LastLineWithoutALineFeedIsNotRead) {
    EXPECT_EQ(parse_otp_reply("28:00000000a1b2c3d4", 28), "");
    EXPECT_EQ(parse_otp_reply("27:x\n28:00000000a1b2c3d4", 28), "");
}

TEST(OtpReplyTest, ValueEndsAtSixteenCharactersOrWhiteSpace) {
    EXPECT_EQ(parse_otp_reply("28:0123456789abcdefgh\n", 28), "0123456789abcdef");
    EXPECT_EQ(parse_otp_reply("28:12 34\n", 28), "12");
    EXPECT_EQ(parse_otp_reply("28:12\r\n", 28), "12");
}

TEST(OtpReplyTest, WhiteSpaceMayPrecedeNumberAndValue) {
    EXPECT_EQ(parse_otp_reply("  28: \tabc\n", 28), "abc");
    EXPECT_EQ(parse_otp_reply("+28:abc\n", 28), "abc");
    EXPECT_EQ(parse_otp_reply("028:abc\n", 28), "abc");
}

TEST(OtpReplyTest, LinesOfAnotherShapeAreSkipped) {
    for (const char* line : {"28 :abc\n", "28abc\n", "x28:abc\n", "28\n", ":abc\n", "\n", "+-28:abc\n",
                             "-28:abc\n", "99999999999999999999:abc\n"}) {
        EXPECT_EQ(parse_otp_reply(line, 28), "") << line;
        EXPECT_EQ(parse_otp_reply(std::string(line) + "28:next\n", 28), "next") << line;
    }
}

TEST(OtpReplyTest, EmptyReplyHasNoRows) {
    EXPECT_EQ(parse_otp_reply("", 28), "");
}

TEST(MemoryReplyTest, TextAfterTheFirstEqualsSign) {
    EXPECT_EQ(parse_memory_reply("arm=948M"), "948M");
    EXPECT_EQ(parse_memory_reply("gpu=76M"), "76M");
    EXPECT_EQ(parse_memory_reply("a=b=c"), "b=c");
    EXPECT_EQ(parse_memory_reply("="), "");
}

TEST(MemoryReplyTest, NothingAfterTheEqualsSignOrNoneIsEmpty) {
    EXPECT_EQ(parse_memory_reply("arm="), "");
    EXPECT_EQ(parse_memory_reply("error"), "");
    EXPECT_EQ(parse_memory_reply(""), "");
}

}  // namespace
