// The real program under bursts: nothing is lost in silence.
#include <gtest/gtest.h>

#include "running_forwarder.h"

namespace {

using tests::artdmx;
using tests::at;
using tests::datagram;
using tests::destination_of;
using tests::number_of;
using tests::RunningForwarder;
using tests::UdpPeer;

using tests::kCharge;

bool all_settled(const QJsonObject& report, int sent) {
    const int packets = number_of(destination_of(report, "127.0.0.2"), "packets");
    return packets + number_of(report, "kernel_drops") == sent;
}

TEST(ForwarderBurstTest, TwoThousandDatagramsAtOnceGetThroughWhereTheBufferHoldsThem) {
    constexpr int kBurst = 2000;
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer node("127.0.0.2");
    const UdpPeer service;
    const tests::Bytes bytes = datagram("127.0.0.2", node.port(), artdmx(0, 1));
    // Stopped, so that the whole burst waits in the socket however fast this machine is.
    ASSERT_TRUE(forwarder.program().halt());
    for (int i = 0; i < kBurst; ++i) {
        ASSERT_TRUE(service.send(forwarder.port(), bytes));
    }
    forwarder.program().signal(SIGCONT);
    const QJsonObject report =
        forwarder.report_when([](const QJsonObject& r) { return all_settled(r, kBurst); });
    EXPECT_TRUE(all_settled(report, kBurst));
    const int room = number_of(at(report, "ports").toArray().at(0).toObject(), "receive_buffer") / kCharge;
    if (room >= kBurst) {
        EXPECT_EQ(number_of(report, "kernel_drops"), 0);
        for (int i = 0; i < kBurst; ++i) {
            ASSERT_TRUE(node.receive()) << i;
        }
    } else {
        EXPECT_NE(forwarder.program().error_output().find("sysctl -w net.core.rmem_max="), std::string::npos);
        EXPECT_GT(number_of(report, "kernel_drops"), 0);
    }
}

TEST(ForwarderBurstTest, WhatOverflowsTheBufferIsReportedToTheLastDatagram) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const int room =
        number_of(at(forwarder.report(), "ports").toArray().at(0).toObject(), "receive_buffer") / kCharge;
    const int sent = room + room / 2 + 1000;
    const UdpPeer node("127.0.0.2");
    const UdpPeer service;
    const tests::Bytes bytes = datagram("127.0.0.2", node.port(), artdmx(0, 1));
    ASSERT_TRUE(forwarder.program().halt());
    for (int i = 0; i < sent; ++i) {
        ASSERT_TRUE(service.send(forwarder.port(), bytes));
    }
    forwarder.program().signal(SIGCONT);
    const QJsonObject report =
        forwarder.report_when([sent](const QJsonObject& r) { return all_settled(r, sent); });
    EXPECT_TRUE(all_settled(report, sent)) << QJsonDocument(report).toJson().toStdString();
    EXPECT_GT(number_of(report, "kernel_drops"), 0);
    EXPECT_EQ(number_of(report, "received") + number_of(report, "kernel_drops"), sent);
    EXPECT_EQ(number_of(report, "accepted"), number_of(report, "received"));
}

}  // namespace
