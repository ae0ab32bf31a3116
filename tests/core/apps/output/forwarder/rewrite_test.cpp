// Rewrite rules: their text and their effect.
#include "rewrite.h"

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using forwarder::Rewrite;
using testing::HasSubstr;

Rewrite rule_of(std::string_view text) {
    Rewrite rule;
    EXPECT_EQ(forwarder::parse_rewrite(text, rule), "");
    return rule;
}

std::string fault_of(std::string_view text) {
    Rewrite rule{1, 2, 3};
    std::string fault = forwarder::parse_rewrite(text, rule);
    EXPECT_EQ(rule, (Rewrite{1, 2, 3})) << "a bad text changes nothing";
    return fault;
}

TEST(RewriteTest, NetworkWithLengthGivesItsMask) {
    EXPECT_EQ(rule_of("192.0.2.0/24=127.0.0.2"), (Rewrite{0xC0000200, 0xFFFFFF00, 0x7F000002}));
}

TEST(RewriteTest, NetworkWithoutLengthIsOneAddress) {
    EXPECT_EQ(rule_of("192.0.2.7=127.0.0.2"), (Rewrite{0xC0000207, 0xFFFFFFFF, 0x7F000002}));
}

TEST(RewriteTest, LengthZeroMatchesEverything) {
    const std::vector<Rewrite> rules{rule_of("0.0.0.0/0=127.0.0.2")};
    EXPECT_EQ(forwarder::rewritten(0, rules), 0x7F000002U);
    EXPECT_EQ(forwarder::rewritten(0xFFFFFFFF, rules), 0x7F000002U);
}

TEST(RewriteTest, OnlyAddressesWithinTheNetworkChange) {
    const std::vector<Rewrite> rules{rule_of("192.0.2.0/24=127.0.0.2")};
    EXPECT_EQ(forwarder::rewritten(0xC0000200, rules), 0x7F000002U);
    EXPECT_EQ(forwarder::rewritten(0xC00002FF, rules), 0x7F000002U);
    EXPECT_EQ(forwarder::rewritten(0xC0000300, rules), 0xC0000300U);
    EXPECT_EQ(forwarder::rewritten(0xC00001FF, rules), 0xC00001FFU);
}

TEST(RewriteTest, FirstRuleThatMatchesCountsAndIsNotFollowedByAnother) {
    const std::vector<Rewrite> rules{rule_of("192.0.2.7=127.0.0.7"), rule_of("192.0.2.0/24=127.0.0.2"),
                                     rule_of("127.0.0.7=127.0.0.9")};
    EXPECT_EQ(forwarder::rewritten(0xC0000207, rules), 0x7F000007U);
    EXPECT_EQ(forwarder::rewritten(0xC0000208, rules), 0x7F000002U);
}

TEST(RewriteTest, FaultsAreNamed) {
    EXPECT_THAT(fault_of("192.0.2.0/24"), HasSubstr("FROM-NET=TO-ADDRESS"));
    EXPECT_THAT(fault_of("net/24=127.0.0.2"), HasSubstr("does not begin with an IPv4 address"));
    EXPECT_THAT(fault_of("192.0.2.0/33=127.0.0.2"), HasSubstr("prefix length"));
    EXPECT_THAT(fault_of("192.0.2.0/=127.0.0.2"), HasSubstr("prefix length"));
    EXPECT_THAT(fault_of("192.0.2.1/24=127.0.0.2"), HasSubstr("192.0.2.0/24"));
    EXPECT_THAT(fault_of("192.0.2.0/24=here"), HasSubstr("\"here\" is no IPv4 address"));
}

}  // namespace
