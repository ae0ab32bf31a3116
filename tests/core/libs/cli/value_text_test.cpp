// Sets of numbers and times, as options give them.
#include "cli/value_text.h"

#include <limits>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/failure.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// What is said about a time that is refused; empty when it is taken.
std::string refusal_of_time(const std::string& text) {
    try {
        static_cast<void>(cli::parse_time("--from", text));
    } catch (const cli::UsageError& error) {
        return error.what();
    }
    return {};
}

std::string refusal_of_ranges(const std::string& text) {
    try {
        static_cast<void>(cli::parse_ranges("--universe", text, 32767));
    } catch (const cli::UsageError& error) {
        return error.what();
    }
    return {};
}

}  // namespace

TEST(ValueTextTest, RangesKeepTheirOrder) {
    EXPECT_THAT(cli::parse_ranges("--universe", "7,0-3,32767", 32767),
                ElementsAre(cli::NumberRange{7, 7}, cli::NumberRange{0, 3}, cli::NumberRange{32767, 32767}));
    EXPECT_THAT(cli::numbers_of("--universe", {{7, 7}, {0, 2}}), ElementsAre(7, 0, 1, 2));
    constexpr std::uint32_t kMax = std::numeric_limits<std::uint32_t>::max();
    EXPECT_THAT(cli::numbers_of("--universe", {{kMax - 1, kMax}}), ElementsAre(kMax - 1, kMax));
}

TEST(ValueTextTest, WhatIsNoListOfRangesIsRefusedWithTheOptionAndAnExample) {
    for (const char* text : {"", "a", "1,", ",1", "1-", "-1", "3-1", "1 2", "1-2-3", "32768", "0-32768",
                             "99999999999", "+1", "1.5", "0x1"}) {
        EXPECT_THAT(refusal_of_ranges(text), StartsWith("--universe " + std::string(text) + ": expected"))
            << text;
    }
    EXPECT_THAT(refusal_of_ranges("x"), HasSubstr("for example 0-3,7"));
}

TEST(ValueTextTest, ANumberGivenTwiceIsRefused) {
    EXPECT_THROW(static_cast<void>(cli::numbers_of("--universe", {{0, 3}, {2, 2}})), cli::UsageError);
}

TEST(ValueTextTest, TimesAreExact) {
    EXPECT_EQ(cli::parse_time("--from", "0"), 0ns);
    EXPECT_EQ(cli::parse_time("--from", "90"), 90s);
    EXPECT_EQ(cli::parse_time("--from", "1.000000001"), 1'000'000'001ns);
    EXPECT_EQ(cli::parse_time("--from", "0.1"), 100ms);
    EXPECT_EQ(cli::parse_time("--from", "1m30s"), 90s);
    EXPECT_EQ(cli::parse_time("--from", "1m30"), 90s) << "the last may lack its unit";
    EXPECT_EQ(cli::parse_time("--from", "1h2m3.5s4ms5us6ns"), 1h + 2min + 3s + 500ms + 4ms + 5us + 6ns);
    EXPECT_EQ(cli::parse_time("--from", "12.5ms"), 12'500us);
    EXPECT_EQ(cli::parse_time("--from", "1.50h"), 90min);
    EXPECT_EQ(cli::parse_time("--from", "2.0ns"), 2ns);
    EXPECT_EQ(cli::parse_time("--from", "9223372036854775807ns"), std::chrono::nanoseconds::max());
}

TEST(ValueTextTest, WhatIsNoTimeIsRefusedWithTheOptionAndAnExample) {
    for (const char* text : {"", "x", "-1", "1.", ".5", "1 s", "1m 30s", "5d", "1.5ns", "0.0000000001", "1e3",
                             "99999999999999999999"}) {
        EXPECT_THAT(refusal_of_time(text), StartsWith("--from " + std::string(text) + ": expected a time"))
            << text;
    }
    EXPECT_THAT(refusal_of_time("9223372036854775808ns"), HasSubstr("292 years"));
    EXPECT_THAT(refusal_of_time("9000000000h"), StartsWith("--from 9000000000h: "));
}

TEST(ValueTextTest, ATimeIsShownInSecondsAsExactly) {
    EXPECT_EQ(cli::time_text(0ns), "0 s");
    EXPECT_EQ(cli::time_text(90s), "90 s");
    EXPECT_EQ(cli::time_text(1ns), "0.000000001 s");
    EXPECT_EQ(cli::time_text(10'005ms), "10.005 s");
    EXPECT_EQ(cli::time_text(-1500ms), "-1.5 s");
    EXPECT_EQ(cli::time_text(std::chrono::nanoseconds::min()), "-9223372036.854775808 s");
}
