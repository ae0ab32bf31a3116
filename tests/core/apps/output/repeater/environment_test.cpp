// The check for a bus address in the environment.

#include "environment.h"

#include <cstdlib>

#include <gtest/gtest.h>

namespace {

constexpr const char* kPrimary = "ENVIRONMENT_TEST_PRIMARY";
constexpr const char* kFallback = "ENVIRONMENT_TEST_FALLBACK";

class EnvironmentTest : public testing::Test {
protected:
    EnvironmentTest() {
        unsetenv(kPrimary);
        unsetenv(kFallback);
    }
};

TEST_F(EnvironmentTest, NeitherVariableIsRefused) {
    EXPECT_FALSE(init_env(kPrimary, kFallback));
}

TEST_F(EnvironmentTest, ThePrimaryAloneIsEnough) {
    setenv(kPrimary, "x", 1);
    EXPECT_TRUE(init_env(kPrimary, kFallback));
}

TEST_F(EnvironmentTest, TheFallbackAloneIsEnough) {
    setenv(kFallback, "x", 1);
    EXPECT_TRUE(init_env(kPrimary, kFallback));
}

TEST_F(EnvironmentTest, OnlyThePresenceCountsNotTheValue) {
    setenv(kPrimary, "", 1);
    EXPECT_TRUE(init_env(kPrimary, kFallback));
}

TEST_F(EnvironmentTest, ANullNameCountsAsAnEmptyOneAndIsNotThere) {
    EXPECT_FALSE(init_env(nullptr, nullptr));
    setenv(kFallback, "x", 1);
    EXPECT_TRUE(init_env(nullptr, kFallback));
    EXPECT_FALSE(init_env(kPrimary, nullptr));
}

TEST_F(EnvironmentTest, NothingIsSet) {
    EXPECT_FALSE(init_env(kPrimary, kFallback));
    EXPECT_EQ(getenv(kPrimary), nullptr);
    EXPECT_EQ(getenv(kFallback), nullptr);
}

}  // namespace
