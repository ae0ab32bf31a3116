// The command line: what it sets, and what it refuses.
#include "options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cuewright/version.h"

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

}  // namespace
