// Addresses, ports and numbers in text.
#include "endpoint.h"

#include <gtest/gtest.h>

namespace {

using forwarder::Endpoint;

TEST(EndpointTest, DottedAddressIsReadAndWrittenBack) {
    EXPECT_EQ(forwarder::parse_address("192.0.2.1"), 0xC0000201U);
    EXPECT_EQ(forwarder::to_text(0xC0000201U), "192.0.2.1");
}

TEST(EndpointTest, OtherTextsAreNoAddress) {
    for (const char* text : {"", "192.0.2", "192.0.2.256", "192.0.2.1 ", "host", "::1"}) {
        EXPECT_FALSE(forwarder::parse_address(text)) << text;
    }
}

TEST(EndpointTest, NumberMustLieInItsRangeAndFillTheText) {
    EXPECT_EQ(forwarder::parse_number("1", 1, 9), 1U);
    EXPECT_EQ(forwarder::parse_number("9", 1, 9), 9U);
    for (const char* text : {"0", "10", "", "-1", "+1", "1x", " 1", "99999999999999999999"}) {
        EXPECT_FALSE(forwarder::parse_number(text, 1, 9)) << text;
    }
}

TEST(EndpointTest, EndpointIsAddressColonPort) {
    EXPECT_EQ(forwarder::parse_endpoint("127.0.0.1:7000"), (Endpoint{0x7F000001, 7000}));
    EXPECT_EQ(forwarder::to_text(Endpoint{0x7F000001, 7000}), "127.0.0.1:7000");
    for (const char* text :
         {"127.0.0.1", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536", ":7000", "a:1", "1.2.3.4:5:6"}) {
        EXPECT_FALSE(forwarder::parse_endpoint(text)) << text;
    }
}

TEST(EndpointTest, SocketAddressIsInNetworkByteOrder) {
    const sockaddr_in address = forwarder::to_sockaddr({0x7F000001, 0x1936});
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(address.sin_addr.s_addr, htonl(0x7F000001));
    EXPECT_EQ(address.sin_port, htons(6454));
}

}  // namespace
