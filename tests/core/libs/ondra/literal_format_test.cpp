#include "ondra/literal_format.h"

#include <gtest/gtest.h>

namespace {

using ondra::make_conversions_literal;

TEST(LiteralFormatTest, TextWithoutConversionsStays) {
    EXPECT_EQ(make_conversions_literal(""), "");
    EXPECT_EQ(make_conversions_literal("Loading: show one"), "Loading: show one");
}

TEST(LiteralFormatTest, PercentSignAndErrorTextStayConversions) {
    EXPECT_EQ(make_conversions_literal("100%% done: %m"), "100%% done: %m");
}

TEST(LiteralFormatTest, ConversionsThatFetchArgumentsAreDoubled) {
    EXPECT_EQ(make_conversions_literal("%n"), "%%n");
    EXPECT_EQ(make_conversions_literal("a %s b %d c"), "a %%s b %%d c");
    EXPECT_EQ(make_conversions_literal("%-08.3lf|%hhx"), "%%-08.3lf|%%hhx");
}

TEST(LiteralFormatTest, WidthAndPositionFromAnArgumentCountAsFetching) {
    EXPECT_EQ(make_conversions_literal("%*m"), "%%*m");
    EXPECT_EQ(make_conversions_literal("%.*m"), "%%.*m");
    EXPECT_EQ(make_conversions_literal("%1$m"), "%%1$m");
    EXPECT_EQ(make_conversions_literal("%*%"), "%%*%%");
}

TEST(LiteralFormatTest, FlagsWidthAndPrecisionDoNotFetch) {
    EXPECT_EQ(make_conversions_literal("%-20m|%.3m"), "%-20m|%.3m");
}

TEST(LiteralFormatTest, PercentSignsWithAnythingInBetweenAreNoConversion) {
    EXPECT_EQ(make_conversions_literal("%5%|%-%|"), "%%5%%|%%-%%|");
}

TEST(LiteralFormatTest, AbsurdWidthIsMadeLiteral) {
    EXPECT_EQ(make_conversions_literal("%999m"), "%999m");
    EXPECT_EQ(make_conversions_literal("%2000000000m"), "%%2000000000m");
    EXPECT_EQ(make_conversions_literal("%.2000000000m"), "%%.2000000000m");
}

TEST(LiteralFormatTest, IncompleteAndUnknownConversionsAreMadeLiteral) {
    EXPECT_EQ(make_conversions_literal("50%"), "50%%");
    EXPECT_EQ(make_conversions_literal("50%-"), "50%%-");
    EXPECT_EQ(make_conversions_literal("%y"), "%%y");
}

TEST(LiteralFormatTest, PercentSignsPairFromTheLeft) {
    EXPECT_EQ(make_conversions_literal("%%s"), "%%s");
    EXPECT_EQ(make_conversions_literal("%%%s"), "%%%%s");
    EXPECT_EQ(make_conversions_literal("%%%"), "%%%%");
}

TEST(LiteralFormatTest, ConversionInsideABrokenOneIsFound) {
    EXPECT_EQ(make_conversions_literal("%l%d"), "%%l%%d");
    EXPECT_EQ(make_conversions_literal("% %n"), "%% %%n");
}

}  // namespace
