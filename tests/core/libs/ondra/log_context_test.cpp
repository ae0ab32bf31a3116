#include "ondra/log_context.h"

#include <gtest/gtest.h>

#include "ondra/logger.h"

namespace {

using ondra::kError;
using ondra::kWarning;
using ondra::log_context;
using ondra::source_prefix_length;

TEST(LogContextTest, PrefixIsWhatPrecedesTheLoggersOwnPath) {
    EXPECT_EQ(source_prefix_length("/build/tree/core/libs/ondra/logger.cpp"), 12U);
    EXPECT_EQ(source_prefix_length("../core/libs/ondra/logger.cpp"), 3U);
}

TEST(LogContextTest, PrefixIsZeroForARelativeOrForeignPath) {
    EXPECT_EQ(source_prefix_length("core/libs/ondra/logger.cpp"), 0U);
    EXPECT_EQ(source_prefix_length("elsewhere.cpp"), 0U);
    EXPECT_EQ(source_prefix_length(""), 0U);
}

TEST(LogContextTest, ErrorShowsPathFromThePrefixLineFunctionAndBracket) {
    EXPECT_EQ(log_context(kError, 5, "/src/core/a.cpp", 42, "void f()"), "core/a.cpp42 void f()) ");
}

TEST(LogContextTest, WarningStartsTwoCharactersEarlier) {
    EXPECT_EQ(log_context(kWarning, 5, "/src/core/a.cpp", 42, "void f()"), "c/core/a.cpp42 void f()) ");
}

TEST(LogContextTest, WarningNeverStartsBeforeThePath) {
    EXPECT_EQ(log_context(kWarning, 1, "/a.cpp", 1, "f"), "/a.cpp1 f) ");
    EXPECT_EQ(log_context(kWarning, 0, "a.cpp", 1, "f"), "a.cpp1 f) ");
}

TEST(LogContextTest, PathShorterThanThePrefixIsEmpty) {
    EXPECT_EQ(log_context(kError, 100, "a.cpp", 7, "f"), "7 f) ");
    EXPECT_EQ(log_context(kError, 5, "a.cpp", 7, "f"), "7 f) ");
    EXPECT_EQ(log_context(kWarning, 100, "a.cpp", 7, "f"), "7 f) ");
}

TEST(LogContextTest, NullTextsAreEmpty) {
    EXPECT_EQ(log_context(kError, 5, nullptr, 0, nullptr), "0 ) ");
}

TEST(LogContextTest, LineIsSigned) {
    EXPECT_EQ(log_context(kError, 0, "a", -3, "f"), "a-3 f) ");
}

TEST(LogContextTest, OtherLevelsHaveNone) {
    for (const int level : {-3, 0, 1, 2, 3, 4, 5, 6}) {
        EXPECT_EQ(log_context(level, 0, "a.cpp", 1, "f"), "") << level;
    }
}

}  // namespace
