#include "ondra/net/host_address.h"

#include <arpa/inet.h>

#include <gtest/gtest.h>

namespace {

using ondra::net::HostAddress;

TEST(HostAddressTest, DefaultIsAnyLocalAddress) {
    const HostAddress any;
    EXPECT_EQ(any.text(), "0.0.0.0");
    ASSERT_TRUE(any.ipv4().has_value());
    EXPECT_EQ(any.ipv4()->s_addr, htonl(INADDR_ANY));
}

TEST(HostAddressTest, DottedTextGivesTheAddressInNetworkOrder) {
    const HostAddress address("10.0.0.5");
    EXPECT_EQ(address.text(), "10.0.0.5");
    ASSERT_TRUE(address.ipv4().has_value());
    EXPECT_EQ(address.ipv4()->s_addr, htonl(0x0A000005));
}

TEST(HostAddressTest, OtherTextIsKeptAndHasNoAddress) {
    for (const char* text : {"", "localhost", "::1", "10.0.0", "10.0.0.256", "10.0.0.5 ", "0x7f.0.0.1"}) {
        const HostAddress address{std::string(text)};
        EXPECT_EQ(address.text(), text);
        EXPECT_FALSE(address.ipv4().has_value()) << text;
    }
}

}  // namespace
