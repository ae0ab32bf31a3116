#include "output_string.h"

#include <string>

#include <gtest/gtest.h>

namespace {

/// "UNIVERSE IP PORT" of an accepted output, else what is wrong with it.
std::string parsed(const char* text) {
    const auto result = parse_output_string(QString::fromUtf8(text));
    if (const auto* const error = std::get_if<OutputError>(&result)) {
        switch (*error) {
            case OutputError::Format:
                return "format";
            case OutputError::Universe:
                return "universe";
            case OutputError::Ip:
                return "ip";
            case OutputError::Port:
                return "port";
        }
    }
    const auto& output = std::get<ParsedOutput>(result);
    return std::to_string(output.universe) + " " + output.address.ip + " " +
           std::to_string(output.address.port);
}

}  // namespace

TEST(OutputStringTest, AnOutputIsUniverseAddressAndPort) {
    EXPECT_EQ(parsed("1:10.0.0.5:6454"), "1 10.0.0.5 6454");
}

TEST(OutputStringTest, AStarStandsForAllOtherUniverses) {
    EXPECT_EQ(parsed("*:10.0.0.5:6454"), "-1 10.0.0.5 6454");
    EXPECT_EQ(parsed(" *:10.0.0.5:6454"), "universe");
    EXPECT_EQ(parsed("**:10.0.0.5:6454"), "universe");
}

TEST(OutputStringTest, UniversesGoFromZeroTo32767) {
    EXPECT_EQ(parsed("0:10.0.0.5:6454"), "0 10.0.0.5 6454");
    EXPECT_EQ(parsed("32767:10.0.0.5:6454"), "32767 10.0.0.5 6454");
    EXPECT_EQ(parsed("32768:10.0.0.5:6454"), "universe");
    EXPECT_EQ(parsed("-1:10.0.0.5:6454"), "universe");
    EXPECT_EQ(parsed("4294967297:10.0.0.5:6454"), "universe") << "does not wrap around";
}

TEST(OutputStringTest, UniversesAreDecimalIntegers) {
    for (const char* const text :
         {":10.0.0.5:6454", "x:10.0.0.5:6454", "1.5:10.0.0.5:6454", "0x1:10.0.0.5:6454", "1e1:10.0.0.5:6454",
          "1 2:10.0.0.5:6454", "1,000:10.0.0.5:6454"}) {
        EXPECT_EQ(parsed(text), "universe") << text;
    }
}

TEST(OutputStringTest, BlanksAroundANumberAndASignBeforeItAreAccepted) {
    EXPECT_EQ(parsed(" 1 :10.0.0.5: 6454 "), "1 10.0.0.5 6454");
    EXPECT_EQ(parsed("+1:10.0.0.5:+6454"), "1 10.0.0.5 6454");
    EXPECT_EQ(parsed("007:10.0.0.5:06454"), "7 10.0.0.5 6454");
}

TEST(OutputStringTest, AddressesFromOneDotZeroUpAreAcceptedButForLoopback) {
    EXPECT_EQ(parsed("1:1.0.0.0:6454"), "1 1.0.0.0 6454");
    EXPECT_EQ(parsed("1:255.255.255.255:6454"), "1 255.255.255.255 6454");
    EXPECT_EQ(parsed("1:126.255.255.255:6454"), "1 126.255.255.255 6454");
    EXPECT_EQ(parsed("1:128.0.0.1:6454"), "1 128.0.0.1 6454");
    for (const char* const text : {"1:0.0.0.0:6454", "1:0.1.2.3:6454", "1:0.255.255.255:6454",
                                   "1:127.0.0.1:6454", "1:127.255.0.9:6454"}) {
        EXPECT_EQ(parsed(text), "ip") << text;
    }
}

TEST(OutputStringTest, WhatIsNoIpv4AddressIsRejected) {
    for (const char* const text :
         {"1::6454", "1:x:6454", "1:10.0.0.256:6454", "1:10.0.0.5.6:6454", "1:host.example:6454"}) {
        EXPECT_EQ(parsed(text), "ip") << text;
    }
}

TEST(OutputStringTest, AnIpv6AddressHasTooManyParts) {
    EXPECT_EQ(parsed("1:fe80::1:6454"), "format");
    EXPECT_EQ(parsed("1:[::1]:6454"), "format");
}

TEST(OutputStringTest, AShortAddressIsStoredInFull) {
    EXPECT_EQ(parsed("1:10.5:6454"), "1 10.0.0.5 6454");
}

TEST(OutputStringTest, PortsGoFrom1024To65535) {
    EXPECT_EQ(parsed("1:10.0.0.5:1024"), "1 10.0.0.5 1024");
    EXPECT_EQ(parsed("1:10.0.0.5:65535"), "1 10.0.0.5 65535");
    for (const char* const text : {"1:10.0.0.5:1023", "1:10.0.0.5:65536", "1:10.0.0.5:", "1:10.0.0.5:-6454",
                                   "1:10.0.0.5:x", "1:10.0.0.5:4294973750"}) {
        EXPECT_EQ(parsed(text), "port") << text;
    }
}

TEST(OutputStringTest, ExactlyThreePartsAreNeeded) {
    for (const char* const text : {"", "1", "1:10.0.0.5", "1:10.0.0.5:6454:x", "1:10.0.0.5:6454:"}) {
        EXPECT_EQ(parsed(text), "format") << text;
    }
}

TEST(OutputStringTest, TheFirstBadPartIsTheOneReported) {
    EXPECT_EQ(parsed("x:x:x"), "universe");
    EXPECT_EQ(parsed("1:x:x"), "ip");
}

TEST(OutputStringTest, TheAddressIsReadyInBinary) {
    const auto result = parse_output_string(QStringLiteral("1:10.0.0.5:6454"));
    EXPECT_EQ(std::get<ParsedOutput>(result).address.ipv4, 0x0A000005U);
}
