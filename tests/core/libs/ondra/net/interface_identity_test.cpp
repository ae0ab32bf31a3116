#include "ondra/net/interface_identity.h"

#include <cerrno>

#include <sched.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QHostAddress>

#include "support/child_process.h"
#include "system_calls.h"

namespace {

using namespace ondra::net;

QNetworkAddressEntry entry(const char* address, const char* broadcast) {
    QNetworkAddressEntry result;
    result.setIp(QHostAddress(QString::fromLatin1(address)));
    if (broadcast != nullptr) {
        result.setBroadcast(QHostAddress(QString::fromLatin1(broadcast)));
    }
    return result;
}

TEST(InterfaceIdentityTest, LoopbackHasAnAddressAndAZeroHardwareAddress) {
    const tests::ChildReport report = tests::run_in_child(CLONE_NEWNET, [] {
        tests::ip("link set lo up");
        return ip_address_hex("lo") + " " + hardware_address_hex("lo");
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, "7f000001 000000000000");
}

TEST(InterfaceIdentityTest, UnknownInterfaceHasNothing) {
    EXPECT_EQ(ip_address_hex("none0"), "");
    EXPECT_EQ(hardware_address_hex("none0"), "");
    EXPECT_EQ(broadcast_address("none0"), "");
}

TEST(InterfaceIdentityTest, WithoutASocketToAskThroughNothingIsKnownAndNothingIsClosed) {
    // Every network has a loopback interface, and this is its hardware address.
    ASSERT_EQ(hardware_address_hex("lo"), "000000000000");
    system_calls = SystemCalls();
    system_calls.failing = "socket";
    system_calls.failures = 2;
    system_calls.error = EMFILE;
    EXPECT_EQ(hardware_address_hex("lo"), "");
    EXPECT_EQ(ip_address_hex("lo"), "");
    EXPECT_THAT(system_calls.made, testing::ElementsAre("socket", "socket"));
    EXPECT_EQ(hardware_address_hex("lo"), "000000000000");
    EXPECT_EQ(system_calls.closed, system_calls.created);
}

TEST(InterfaceIdentityTest, InterfaceWithoutAnAddressHasOnlyItsHardwareAddress) {
    const tests::ChildReport report = tests::run_in_child(CLONE_NEWNET, [] {
        tests::ip("link add eth0 address 02:0a:b0:0c:0d:f1 type veth peer name peer0");
        return "<" + ip_address_hex("eth0") + "> <" + broadcast_address("eth0") + "> " +
               hardware_address_hex("eth0");
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, "<> <> 020ab00c0df1");
}

TEST(InterfaceIdentityTest, NameIsCutAtFifteenCharacters) {
    const tests::ChildReport report = tests::run_in_child(CLONE_NEWNET, [] {
        tests::ip("link add abcdefghijklmno address 02:00:00:00:00:01 type veth peer name peer0");
        return hardware_address_hex("abcdefghijklmnopq");
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, "020000000001");
}

TEST(InterfaceIdentityTest, LastBroadcastAddressWins) {
    EXPECT_EQ(last_broadcast_address({entry("10.0.0.5", "10.0.0.255"), entry("10.1.0.5", "10.1.255.255")}),
              "10.1.255.255");
}

TEST(InterfaceIdentityTest, EntriesThatAreNotIpv4OrHaveNoBroadcastAddressAreSkipped) {
    EXPECT_EQ(last_broadcast_address({entry("10.0.0.5", "10.0.0.255"), entry("10.1.0.5", nullptr)}),
              "10.0.0.255");
    EXPECT_EQ(last_broadcast_address({entry("10.0.0.5", "10.0.0.255"), entry("fe80::1", "10.9.9.255")}),
              "10.0.0.255");
    EXPECT_EQ(last_broadcast_address({entry("10.1.0.5", nullptr)}), "");
    EXPECT_EQ(last_broadcast_address({}), "");
}

}  // namespace
