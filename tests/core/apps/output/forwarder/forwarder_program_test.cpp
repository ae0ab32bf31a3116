// The real program between real sockets: delivery, refusals, reports, signals and ports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "options.h"
#include "running_forwarder.h"
#include "support/eventually.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
using tests::artdmx;
using tests::at;
using tests::Bytes;
using tests::ChildProgram;
using tests::datagram;
using tests::destination_of;
using tests::kCharge;
using tests::number_of;
using tests::RunningForwarder;
using tests::UdpPeer;

TEST(ForwarderProgramTest, PacketArrivesUnchangedAtTheAddressInItsHeader) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready()) << forwarder.program().error_output();
    const UdpPeer node("127.0.0.2");
    Bytes packet = artdmx(0x0102, 0, 9);
    for (std::size_t i = 18; i < packet.size(); ++i) {
        packet[i] = static_cast<unsigned char>(i * 7);
    }
    ASSERT_TRUE(UdpPeer().send(forwarder.port(), datagram("127.0.0.2", node.port(), packet)));
    EXPECT_EQ(node.receive(), packet);
    const auto report = forwarder.stop();
    ASSERT_TRUE(report);
    const QJsonObject counters = destination_of(*report, "127.0.0.2");
    EXPECT_EQ(number_of(counters, "port"), node.port());
    EXPECT_EQ(number_of(counters, "packets"), 1);
    EXPECT_EQ(number_of(counters, "bytes"), 530);
    EXPECT_EQ(number_of(counters, "errors"), 0);
}

TEST(ForwarderProgramTest, OrderWithinADestinationIsKept) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer node("127.0.0.2");
    const UdpPeer other("127.0.0.3");
    const UdpPeer service;
    // In rounds that the smallest receive buffer holds.
    constexpr int kRound = 25;
    for (int begin = 0; begin < 4 * kRound; begin += kRound) {
        for (int i = begin; i < begin + kRound; ++i) {
            const auto mark = static_cast<unsigned char>(i);
            service.send(forwarder.port(), datagram("127.0.0.2", node.port(), artdmx(0, 1, mark)));
            service.send(forwarder.port(), datagram("127.0.0.3", other.port(), artdmx(1, 2, mark)));
        }
        for (int i = begin; i < begin + kRound; ++i) {
            const auto mark = static_cast<unsigned char>(i);
            ASSERT_EQ(node.receive(), artdmx(0, 1, mark));
            ASSERT_EQ(other.receive(), artdmx(1, 2, mark));
        }
    }
}

TEST(ForwarderProgramTest, EachFaultIsCountedUnderItsReasonAndNothingIsSent) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer node("127.0.0.2");
    const UdpPeer service;
    Bytes other_identifier = datagram("127.0.0.2", node.port());
    other_identifier[24] = 'X';
    const std::vector<std::pair<Bytes, int>> faults{{Bytes(553), 1},
                                                    {Bytes(555), 1},
                                                    {Bytes(), 1},
                                                    {datagram("255.255.255.2555", node.port()), 2},
                                                    {datagram("127.0.0", node.port()), 3},
                                                    {datagram("", node.port()), 3},
                                                    {datagram("127.0.0.2", 0), 4},
                                                    {datagram("127.0.0.2", -1), 4},
                                                    {datagram("127.0.0.2", 65536 + node.port()), 4},
                                                    {other_identifier, 5}};
    for (const auto& [bytes, reason] : faults) {
        ASSERT_TRUE(service.send(forwarder.port(), bytes)) << reason;
    }
    service.send(forwarder.port(), datagram("127.0.0.2", node.port(), artdmx(1)));
    EXPECT_EQ(node.receive(), artdmx(1)) << "the good one is the first to arrive";
    const auto report = forwarder.stop();
    ASSERT_TRUE(report);
    EXPECT_FALSE(node.pending());
    const QJsonObject rejected = at(*report, "rejected").toObject();
    EXPECT_EQ(number_of(rejected, "size"), 3);
    EXPECT_EQ(number_of(rejected, "unterminated_address"), 1);
    EXPECT_EQ(number_of(rejected, "invalid_address"), 2);
    EXPECT_EQ(number_of(rejected, "port"), 3);
    EXPECT_EQ(number_of(rejected, "identifier"), 1);
    const QJsonObject of_node = at(destination_of(*report, "127.0.0.2"), "rejected").toObject();
    EXPECT_EQ(number_of(of_node, "identifier"), 1) << "its header is good, so the destination is known";
    EXPECT_EQ(number_of(*report, "received"), 11);
    EXPECT_EQ(number_of(*report, "accepted"), 1);
    EXPECT_THAT(forwarder.program().error_output(), HasSubstr("rejected a datagram of 553 bytes: size"));
}

TEST(ForwarderProgramTest, RewrittenNetworkGoesElsewhereAtTheSamePort) {
    RunningForwarder forwarder({"--rewrite", "192.0.2.7=127.0.0.3", "--rewrite", "192.0.2.0/24=127.0.0.2"});
    ASSERT_TRUE(forwarder.ready());
    const std::uint16_t port = tests::free_port();
    const UdpPeer rig("127.0.0.2", port, true);
    const UdpPeer special("127.0.0.3", port, true);
    const UdpPeer service;
    service.send(forwarder.port(), datagram("192.0.2.1", rig.port(), artdmx(1)));
    service.send(forwarder.port(), datagram("192.0.2.7", rig.port(), artdmx(7)));
    service.send(forwarder.port(), datagram("192.0.2.255", rig.port(), artdmx(2)));
    EXPECT_EQ(rig.receive(), artdmx(1));
    EXPECT_EQ(rig.receive(), artdmx(2));
    EXPECT_EQ(special.receive(), artdmx(7));
    const auto report = forwarder.stop();
    ASSERT_TRUE(report);
    EXPECT_EQ(at(destination_of(*report, "192.0.2.7"), "sent_to").toString().toStdString(),
              "127.0.0.3:" + std::to_string(rig.port()));
}

TEST(ForwarderProgramTest, TeeReceivesEveryAcceptedDatagramWhole) {
    const UdpPeer copy("127.0.0.3");
    RunningForwarder forwarder({"--tee", "127.0.0.3:" + std::to_string(copy.port())});
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer node("127.0.0.2");
    const UdpPeer service;
    service.send(forwarder.port(), Bytes(100));
    const Bytes sent = datagram("127.0.0.2", node.port(), artdmx(5, 6));
    service.send(forwarder.port(), sent);
    EXPECT_EQ(copy.receive(), sent);
    EXPECT_EQ(node.receive(), artdmx(5, 6));
    const auto report = forwarder.stop();
    ASSERT_TRUE(report);
    EXPECT_FALSE(copy.pending());
    EXPECT_EQ(number_of(at(*report, "tee").toObject(), "packets"), 1);
    EXPECT_EQ(number_of(at(*report, "tee").toObject(), "bytes"), 554);
}

TEST(ForwarderProgramTest, SeveralPortsAreServedAtOnce) {
    const std::uint16_t second = tests::free_port();
    RunningForwarder forwarder({"--port", std::to_string(second)});
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer node("127.0.0.2");
    const UdpPeer service;
    service.send(forwarder.port(), datagram("127.0.0.2", node.port(), artdmx(1)));
    EXPECT_EQ(node.receive(), artdmx(1));
    service.send(second, datagram("127.0.0.2", node.port(), artdmx(2)));
    EXPECT_EQ(node.receive(), artdmx(2));
    const auto report = forwarder.stop();
    ASSERT_TRUE(report);
    const QJsonArray ports = at(*report, "ports").toArray();
    ASSERT_EQ(ports.size(), 2);
    EXPECT_EQ(number_of(ports.at(0).toObject(), "port"), forwarder.port());
    EXPECT_EQ(number_of(ports.at(0).toObject(), "received"), 1);
    EXPECT_EQ(number_of(ports.at(1).toObject(), "port"), second);
    EXPECT_EQ(number_of(ports.at(1).toObject(), "received"), 1);
}

TEST(ForwarderProgramTest, BroadcastIsPermitted) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer everywhere("0.0.0.0");
    UdpPeer().send(forwarder.port(), datagram("127.255.255.255", everywhere.port(), artdmx(4)));
    EXPECT_EQ(everywhere.receive(), artdmx(4));
}

TEST(ForwarderProgramTest, NodeThatRefusesStillGetsEveryPacketOnceItListens) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const std::uint16_t port = tests::refusing_port();
    const UdpPeer service;
    for (int sent = 1; sent <= 10; ++sent) {
        // One by one: the refusals of two that go out together may come together, too.
        service.send(forwarder.port(), datagram("127.0.0.1", port, artdmx(0)));
        const QJsonObject report = forwarder.report_when([sent](const QJsonObject& r) {
            return number_of(destination_of(r, "127.0.0.1"), "packets") == sent;
        });
        ASSERT_EQ(number_of(destination_of(report, "127.0.0.1"), "packets"), sent);
        ASSERT_EQ(number_of(destination_of(report, "127.0.0.1"), "unsent"), 0);
    }
    EXPECT_GE(number_of(destination_of(forwarder.report(), "127.0.0.1"), "errors"), 1) << "it does refuse";
    const UdpPeer node("127.0.0.1", port, true);
    service.send(forwarder.port(), datagram("127.0.0.1", port, artdmx(1)));
    EXPECT_EQ(node.receive(), artdmx(1));
}

TEST(ForwarderProgramTest, DestinationsBeyondTheLimitShareOneCounterAndAreServed) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer everywhere("0.0.0.0");
    const UdpPeer service;
    constexpr int kDestinations = 600;
    // No more at a time than a receive buffer of the usual limit holds.
    constexpr int kAtATime = 100;
    for (int first = 0; first < kDestinations; first += kAtATime) {
        for (int i = first; i < first + kAtATime; ++i) {
            const std::string address =
                "127.1." + std::to_string(i / 200) + "." + std::to_string(1 + i % 200);
            ASSERT_TRUE(service.send(forwarder.port(), datagram(address, everywhere.port(), artdmx(0))));
        }
        for (int i = first; i < first + kAtATime; ++i) {
            ASSERT_EQ(everywhere.receive(), artdmx(0)) << i;
        }
    }
    const auto report = forwarder.stop();
    ASSERT_TRUE(report);
    EXPECT_EQ(at(*report, "destinations").toArray().size(), 512);
    EXPECT_EQ(number_of(at(*report, "others").toObject(), "packets"), kDestinations - 512);
}

TEST(ForwarderProgramTest, ReportOnRequestIsFollowedByMoreWork) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    EXPECT_EQ(number_of(forwarder.report(), "received"), 0);
    const UdpPeer node("127.0.0.2");
    UdpPeer().send(forwarder.port(), datagram("127.0.0.2", node.port()));
    EXPECT_TRUE(node.receive());
    EXPECT_EQ(number_of(forwarder.report(), "received"), 1);
    ASSERT_TRUE(forwarder.stop());
    EXPECT_EQ(forwarder.reports().size(), 3U);
}

TEST(ForwarderProgramTest, BothTerminationSignalsEndItWithStatusZeroAndAReport) {
    for (const int signal : {SIGINT, SIGTERM}) {
        RunningForwarder forwarder;
        ASSERT_TRUE(forwarder.ready());
        EXPECT_TRUE(forwarder.stop(signal)) << signal;
    }
}

TEST(ForwarderProgramTest, WhatHasArrivedBeforeTheSignalIsStillDelivered) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer node("127.0.0.2");
    const UdpPeer service;
    // As many as the buffer holds, which may be several times what is between the threads.
    const QJsonObject port = at(forwarder.report(), "ports").toArray().at(0).toObject();
    const int sent = number_of(port, "receive_buffer") / kCharge * 9 / 10;
    ASSERT_TRUE(forwarder.program().halt());
    for (int i = 0; i < sent; ++i) {
        ASSERT_TRUE(service.send(forwarder.port(), datagram("127.0.0.2", node.port())));
    }
    forwarder.program().signal(SIGTERM);
    forwarder.program().signal(SIGCONT);
    EXPECT_EQ(forwarder.program().wait_exit(), 0);
    const QJsonObject report = forwarder.reports().back();
    EXPECT_EQ(number_of(report, "kernel_drops"), 0);
    EXPECT_EQ(number_of(report, "left_behind"), 0);
    EXPECT_EQ(number_of(destination_of(report, "127.0.0.2"), "packets"), sent);
}

TEST(ForwarderProgramTest, ReportIsATableUnlessJsonIsAskedFor) {
    const std::uint16_t port = tests::free_port();
    ChildProgram program({FORWARDER_PROGRAM, "--port", std::to_string(port)});
    ASSERT_TRUE(program.wait_for_error("listening on"));
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait_exit(), 0);
    EXPECT_THAT(program.output(), AllOf(StartsWith("received 0, accepted 0, rejected 0"),
                                        HasSubstr("port " + std::to_string(port) + ": received 0")));
}

TEST(ForwarderProgramTest, OccupiedPortIsNamedWithWhatToDo) {
    RunningForwarder first;
    ASSERT_TRUE(first.ready());
    ChildProgram second(RunningForwarder::command(first.port(), {}));
    EXPECT_EQ(second.wait_exit(), forwarder::kExitPortInUse);
    EXPECT_EQ(second.output(), "");
    EXPECT_THAT(second.error_output(),
                AllOf(HasSubstr("port " + std::to_string(first.port()) + " on 127.0.0.1"),
                      HasSubstr("in use"), HasSubstr("choose another port with --port")));
    EXPECT_EQ(number_of(first.report(), "received"), 0) << "the first one is not disturbed";
}

TEST(ForwarderProgramTest, AnotherProgramMayBindTheWildcardAddressOnThePort) {
    RunningForwarder forwarder;
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer other("0.0.0.0", forwarder.port(), true);
    const UdpPeer node("127.0.0.2");
    UdpPeer().send(forwarder.port(), datagram("127.0.0.2", node.port()));
    EXPECT_TRUE(node.receive()) << "the exact address still wins";
    EXPECT_FALSE(other.pending());
}

TEST(ForwarderProgramTest, WrongCommandLineIsExplainedOnStandardError) {
    ChildProgram program({FORWARDER_PROGRAM, "--port", "0"});
    EXPECT_EQ(program.wait_exit(), forwarder::kExitUsage);
    EXPECT_EQ(program.output(), "");
    EXPECT_THAT(program.error_output(), AllOf(HasSubstr("--port"), HasSubstr("--help")));
}

TEST(ForwarderProgramTest, HelpAndVersionGoToStandardOutput) {
    ChildProgram help({FORWARDER_PROGRAM, "--help"});
    EXPECT_EQ(help.wait_exit(), 0);
    EXPECT_THAT(help.output(), HasSubstr("Examples:"));
    ChildProgram version({FORWARDER_PROGRAM, "--version"});
    EXPECT_EQ(version.wait_exit(), 0);
    EXPECT_THAT(version.output(), StartsWith("cuewright-forwarder "));
}

TEST(ForwarderProgramTest, WatchPrintsALinePerUniverseWithoutATerminal) {
    const std::uint16_t port = tests::free_port();
    ChildProgram program({FORWARDER_PROGRAM, "--port", std::to_string(port), "--watch"});
    ASSERT_TRUE(program.wait_for_error("listening on"));
    const UdpPeer node("127.0.0.2");
    const UdpPeer service;
    // Frames until the second line shows a rate: one universe, so that each line is about it.
    const auto end = std::chrono::steady_clock::now() + UdpPeer::kDeadline;
    while (!program.wait_for_output(" fps, interval p50 ", std::chrono::milliseconds(10)) &&
           std::chrono::steady_clock::now() < end) {
        service.send(port, datagram("127.0.0.2", node.port(), artdmx(9, 200)));
    }
    EXPECT_THAT(program.output(), HasSubstr("universe 9 to 127.0.0.2:" + std::to_string(node.port())));
    EXPECT_THAT(program.output(), HasSubstr("levels 200 200 200"));
    EXPECT_EQ(program.output().find('\x1b'), std::string::npos) << "no terminal codes";
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait_exit(), 0);
}

TEST(ForwarderProgramTest, WatchAsJsonCarriesAllLevels) {
    RunningForwarder forwarder({"--watch"});
    ASSERT_TRUE(forwarder.ready());
    const UdpPeer node("127.0.0.2");
    UdpPeer().send(forwarder.port(), datagram("127.0.0.2", node.port(), artdmx(9, 200)));
    // Only whole lines are reports.
    QJsonArray universes;
    ASSERT_TRUE(eventually([&] {
        const std::vector<QJsonObject> shown = forwarder.reports("watch");
        universes = shown.empty() ? QJsonArray() : at(shown.back(), "universes").toArray();
        return !universes.isEmpty();
    }));
    const QJsonObject universe = universes.at(0).toObject();
    EXPECT_EQ(number_of(universe, "frames"), 1);
    EXPECT_EQ(at(universe, "levels").toArray().size(), 512);
    EXPECT_EQ(at(universe, "levels").toArray().at(511), 200);
}

}  // namespace
