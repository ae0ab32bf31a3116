// The command line: what it sets, and what it refuses.
#include "options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cuewright/version.h"
#include "option_values.h"

namespace {

using forwarder::ParsedOptions;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

ParsedOptions parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "cuewright-forwarder");
    return forwarder::parse_options(static_cast<int>(arguments.size()), arguments.data());
}

std::string usage_error(std::vector<const char*> arguments) {
    const ParsedOptions parsed = parse(std::move(arguments));
    EXPECT_EQ(parsed.exit_status, forwarder::kExitUsage);
    EXPECT_THAT(parsed.message, AllOf(StartsWith("cuewright-forwarder: "), HasSubstr("--help")));
    return parsed.message;
}

TEST(OptionsTest, WithoutArgumentsItListensOnTheArtNetPortAlone) {
    const ParsedOptions parsed = parse({});
    EXPECT_FALSE(parsed.exit_status);
    EXPECT_THAT(parsed.options.ports, ElementsAre(6454));
    EXPECT_TRUE(parsed.options.rewrites.empty());
    EXPECT_FALSE(parsed.options.tee);
    EXPECT_FALSE(parsed.options.json);
    EXPECT_FALSE(parsed.options.watch);
    EXPECT_FALSE(parsed.options.outlet.any());
    EXPECT_EQ(parsed.options.dscp, 0U);
    EXPECT_EQ(parsed.options.metrics, "");
}

TEST(OptionsTest, EverythingGivenIsSet) {
    const ParsedOptions parsed =
        parse({"--port", "7000", "--port", "7001", "--rewrite", "192.0.2.7=127.0.0.7", "--rewrite",
               "192.0.2.0/24=127.0.0.2", "--tee", "127.0.0.3:7000", "--json", "--watch"});
    EXPECT_FALSE(parsed.exit_status);
    EXPECT_THAT(parsed.options.ports, ElementsAre(7000, 7001));
    ASSERT_EQ(parsed.options.rewrites.size(), 2U);
    EXPECT_EQ(parsed.options.rewrites[0].replacement, 0x7F000007U);
    EXPECT_EQ(parsed.options.rewrites[1].replacement, 0x7F000002U);
    EXPECT_EQ(parsed.options.tee, (forwarder::Endpoint{0x7F000003, 7000}));
    EXPECT_TRUE(parsed.options.json);
    EXPECT_TRUE(parsed.options.watch);
}

TEST(OptionsTest, HelpShowsExamplesAndExitStatuses) {
    const ParsedOptions parsed = parse({"--help"});
    EXPECT_EQ(parsed.exit_status, 0);
    EXPECT_THAT(parsed.message, AllOf(HasSubstr("Examples:"), HasSubstr("--rewrite 192.0.2.0/24=127.0.0.2"),
                                      HasSubstr("Exit status:"), HasSubstr("SIGUSR1")));
}

TEST(OptionsTest, VersionIsThatOfTheProject) {
    const ParsedOptions parsed = parse({"--version"});
    EXPECT_EQ(parsed.exit_status, 0);
    EXPECT_EQ(parsed.message, "cuewright-forwarder " CUEWRIGHT_VERSION "\n");
}

TEST(OptionsTest, BadPortsAreRefused) {
    for (const char* port : {"0", "65536", "-1", "x", ""}) {
        EXPECT_THAT(usage_error({"--port", port}), HasSubstr("--port")) << port;
    }
    EXPECT_THAT(usage_error({"--port"}), HasSubstr("--port"));
    EXPECT_THAT(usage_error({"--port", "7000", "--port", "7000"}), HasSubstr("--port 7000 is given twice"));
}

TEST(OptionsTest, OnePortOptionTakesOneValue) {
    EXPECT_THAT(usage_error({"--port", "7000", "7001"}), HasSubstr("7001"));
}

TEST(OptionsTest, BadRewriteIsRefusedWithItsText) {
    EXPECT_THAT(usage_error({"--rewrite", "192.0.2.0/24"}),
                AllOf(HasSubstr("--rewrite 192.0.2.0/24:"), HasSubstr("FROM-NET=TO-ADDRESS")));
}

TEST(OptionsTest, BadTeeIsRefusedWithItsText) {
    EXPECT_THAT(usage_error({"--tee", "127.0.0.1"}), HasSubstr("--tee 127.0.0.1: expected ADDRESS:PORT"));
    EXPECT_THAT(usage_error({"--tee", ""}), HasSubstr("ADDRESS:PORT"));
}

TEST(OptionsTest, TeeToAPortOfItsOwnWouldRunInCircles) {
    EXPECT_THAT(usage_error({"--tee", "127.0.0.1:6454"}), HasSubstr("listens on itself"));
    EXPECT_THAT(usage_error({"--port", "7000", "--tee", "0.0.0.0:7000"}), HasSubstr("listens on itself"));
    EXPECT_FALSE(parse({"--tee", "127.0.0.2:6454"}).exit_status);
    EXPECT_FALSE(parse({"--tee", "127.0.0.1:6455"}).exit_status);
}

TEST(OptionsTest, UnknownArgumentsAreRefused) {
    EXPECT_THAT(usage_error({"--loud"}), HasSubstr("--loud"));
    EXPECT_THAT(usage_error({"stray"}), HasSubstr("stray"));
}

TEST(OptionsTest, WhatIsDoneWithPacketsIsSetOneByOne) {
    EXPECT_TRUE(parse({"--sequence"}).options.outlet.sequence);
    EXPECT_TRUE(parse({"--sync"}).options.outlet.sync);
    EXPECT_TRUE(parse({"--trim"}).options.outlet.trim);
    EXPECT_EQ(parse({"--metrics", "a.prom"}).options.metrics, "a.prom");
    EXPECT_EQ(parse({"--pace", "4000"}).options.outlet.pace, std::chrono::microseconds(250));
    EXPECT_EQ(parse({"--dscp", "CS6"}).options.dscp, 48U);
    EXPECT_EQ(parse({"--keep-alive", "0.8"}).options.outlet.keep_alive, std::chrono::milliseconds(800));
    EXPECT_EQ(parse({"--keep-alive=1"}).options.outlet.keep_alive, std::chrono::seconds(1));
}

TEST(OptionsTest, KeepAliveAndDscpHaveDefaultsWhenGivenAlone) {
    const ParsedOptions parsed = parse({"--keep-alive", "--dscp", "--json"});
    EXPECT_FALSE(parsed.exit_status) << parsed.message;
    EXPECT_EQ(parsed.options.outlet.keep_alive, std::chrono::milliseconds(900));
    EXPECT_EQ(parsed.options.dscp, 46U);
    EXPECT_TRUE(parsed.options.json);
    EXPECT_EQ(parse({"--keep-alive"}).options.outlet.keep_alive, std::chrono::milliseconds(900));
    EXPECT_EQ(parse({"--dscp"}).options.dscp, 46U);
}

TEST(OptionsTest, ValuesOutOfRangeAreRefusedWithWhatIsExpected) {
    EXPECT_THAT(usage_error({"--keep-alive", "0.79"}), HasSubstr("--keep-alive 0.79: expected 0.8 to 1"));
    EXPECT_THAT(usage_error({"--pace", "0"}), HasSubstr("--pace 0: expected packets per second"));
    EXPECT_THAT(usage_error({"--pace"}), HasSubstr("--pace"));
    EXPECT_THAT(usage_error({"--dscp", "64"}), HasSubstr("--dscp 64: expected EF"));
    EXPECT_THAT(usage_error({"--metrics", ""}), HasSubstr("--metrics: expected the path of a file"));
    EXPECT_THAT(usage_error({"--metrics"}), HasSubstr("--metrics"));
}

TEST(OptionValuesTest, KeepAliveIsAPlainNumberOfSecondsFrom800MillisecondsTo1Second) {
    EXPECT_EQ(forwarder::parse_keep_alive("0.85"), std::chrono::milliseconds(850));
    EXPECT_EQ(forwarder::parse_keep_alive("1.0"), std::chrono::seconds(1));
    for (const char* text : {"", "0.7999", "1.0001", "9e-1", "nan", "inf", "-0.9", "0.9s", " 0.9", "0x1"}) {
        EXPECT_FALSE(forwarder::parse_keep_alive(text)) << text;
    }
}

TEST(OptionValuesTest, PaceIsARateOrAGap) {
    EXPECT_EQ(forwarder::parse_pace("1"), std::chrono::seconds(1));
    EXPECT_EQ(forwarder::parse_pace("100000"), std::chrono::microseconds(10));
    EXPECT_EQ(forwarder::parse_pace("10us"), std::chrono::microseconds(10));
    EXPECT_EQ(forwarder::parse_pace("1000ms"), std::chrono::seconds(1));
    for (const char* text : {"", "0", "100001", "9us", "1001ms", "0ms", "us", "2s", "-5", "1.5", "1 ms"}) {
        EXPECT_FALSE(forwarder::parse_pace(text)) << text;
    }
}

TEST(OptionValuesTest, DscpIsANumberOrAClassByName) {
    EXPECT_EQ(forwarder::parse_dscp("EF"), 46U);
    EXPECT_EQ(forwarder::parse_dscp("ef"), 46U);
    EXPECT_EQ(forwarder::parse_dscp("CS0"), 0U);
    EXPECT_EQ(forwarder::parse_dscp("cs7"), 56U);
    EXPECT_EQ(forwarder::parse_dscp("AF11"), 10U);
    EXPECT_EQ(forwarder::parse_dscp("af43"), 38U);
    EXPECT_EQ(forwarder::parse_dscp("0"), 0U);
    EXPECT_EQ(forwarder::parse_dscp("63"), 63U);
    for (const char* text : {"", "64", "-1", "CS8", "CS", "AF51", "AF14", "AF1", "EFF", "E", "46 "}) {
        EXPECT_FALSE(forwarder::parse_dscp(text)) << text;
    }
}

}  // namespace
