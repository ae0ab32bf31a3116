// What the discovery says and does where something is missing or wrong.
#include <csignal>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "discovery_rig.h"
#include "posix/file_descriptor.h"
#include "posix/ipv4.h"
#include "support/terminal.h"

using testing::HasSubstr;
using tests::ChildProgram;

TEST_F(DiscoveryTest, WhatCannotBeDoneIsSaid) {
    start_discovery();
    ChildProgram second({NETSURVEY_PROGRAM, "--state", path("other")}, bus_environment());
    EXPECT_EQ(second.wait_exit(), 3);
    EXPECT_THAT(second.error_output(), HasSubstr("another discovery has it"));
    discovery().signal(SIGINT);
    EXPECT_EQ(discovery().wait_exit(), 0);

    const posix::FileDescriptor taken(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = posix::ipv4_sockaddr(INADDR_ANY, 7000);
    ASSERT_EQ(bind(taken.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ChildProgram without_port({NETSURVEY_PROGRAM, "--state", path("other"), "--port", "7000"},
                              bus_environment());
    EXPECT_EQ(without_port.wait_exit(), 1);
    EXPECT_THAT(without_port.error_output(),
                HasSubstr("cannot bind the wildcard address for port 7000: Address already"));
    ChildProgram without_file({NETSURVEY_PROGRAM, "--static", path("none")}, bus_environment());
    EXPECT_EQ(without_file.wait_exit(), 1);
    EXPECT_THAT(without_file.error_output(), HasSubstr("none: No such file"));
    ChildProgram without_bus({NETSURVEY_PROGRAM}, {"DBUS_SESSION_BUS_ADDRESS=unix:path=" + path("none")});
    EXPECT_EQ(without_bus.wait_exit(), 1);
    EXPECT_THAT(without_bus.error_output(), HasSubstr("no session bus"));
    ChildProgram wrong({NETSURVEY_PROGRAM, "--expiry", "1"});
    EXPECT_EQ(wrong.wait_exit(), 2);
}

TEST_F(DiscoveryTest, ABusThatDeniesTheNameIsToldFromAnotherDiscovery) {
    const QTemporaryDir directory;
    const integration::SessionBus denying(
        directory.path().toStdString(),
        "<policy context=\"mandatory\"><deny own=\"com.torvexserver.Netsurvey\"/></policy>");
    ASSERT_TRUE(denying.running());
    ChildProgram program({NETSURVEY_PROGRAM, "--state", path("other")},
                         {"DBUS_SESSION_BUS_ADDRESS=" + denying.address()});
    EXPECT_EQ(program.wait_exit(), 1);
    EXPECT_THAT(program.error_output(),
                HasSubstr("cannot have the name com.torvexserver.Netsurvey: Connection \""));
    EXPECT_THAT(program.error_output(), HasSubstr("is not allowed to own the service"));
}

TEST_F(DiscoveryTest, LookingShowsHowLongItStillTakes) {
    tests::Terminal terminal(100, 30);
    if (terminal.name().empty()) {
        GTEST_SKIP() << "no pseudo-terminals here";
    }
    ChildProgram program({"/bin/sh", "-c", "exec \"$0\" --list --wait 600 --target 10.77.0.9 2> \"$1\"",
                          NETSURVEY_PROGRAM, terminal.name()},
                         bus_environment());
    EXPECT_TRUE(terminal.read_until_text("\r\x1b[Klooking for nodes  [.")) << terminal.text();
    program.signal(SIGINT);
    EXPECT_TRUE(terminal.read_until_text("cuewright-netsurvey: ended by a signal")) << terminal.text();
    EXPECT_EQ(program.wait_exit(), 1);
    EXPECT_EQ(program.output(), "");
}

TEST_F(DiscoveryTest, BesideAnotherProgramOnThePortOneOfThemSaysWhoLosesItsUnicast) {
    ChildProgram monitor({MONITOR_PROGRAM});
    ASSERT_TRUE(monitor.wait_for_error("listening on 0.0.0.0:6454")) << monitor.error_output();
    start_discovery();
    EXPECT_TRUE(discovery().wait_for_error("cuewright-monitor (process " + std::to_string(monitor.pid()) +
                                           ") shares *:6454; unicast that came to it comes here now"))
        << discovery().error_output();
    ChildProgram second({MONITOR_PROGRAM});
    EXPECT_TRUE(second.wait_for_error("cuewright-netsurvey (process " + std::to_string(discovery().pid()) +
                                      ") shares *:6454; unicast that came to it comes here now"))
        << second.error_output();
}

TEST_F(DiscoveryTest, GarbageFromTheNetworkDoesNoHarm) {
    Listener listener(bus().address());
    start_discovery({"--interface", "near"});
    const posix::FileDescriptor sender(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in target = posix::ipv4_sockaddr(0x0A4D0001, 6454);
    const auto send = [&](const std::string& bytes) {
        EXPECT_EQ(sendto(sender.get(), bytes.data(), bytes.size(), 0,
                         reinterpret_cast<const sockaddr*>(&target), sizeof target),
                  static_cast<ssize_t>(bytes.size()));
    };
    const std::string header("Art-Net\0\0\x21", 10);
    for (std::size_t size = 0; size <= header.size(); ++size) {
        send(header.substr(0, size));
    }
    // Replies: too short by one, longer than any buffer, and of the right size with every byte wrong.
    send(header + std::string(206 - header.size(), '\0'));
    send(header + std::string(60'000, '\xFF'));
    send(header + std::string(239 - header.size(), '\xFF'));
    send(std::string(239, '\xFF'));
    start_node();
    EXPECT_TRUE(listener.wait_for(kUniverse, kNode)) << discovery().error_output();
    discovery().signal(SIGTERM);
    EXPECT_EQ(discovery().wait_exit(), 0) << discovery().error_output();
}

TEST_F(DiscoveryTest, WithoutPermissionForThePortItSaysSo) {
    ChildProgram program({"/bin/sh", "-c",
                          "exec setpriv --bounding-set=-net_bind_service --inh-caps=-net_bind_service "
                          "\"$0\" --port 80 --state \"$1\"",
                          NETSURVEY_PROGRAM, path("state")},
                         bus_environment());
    EXPECT_EQ(program.wait_exit(), 1);
    EXPECT_THAT(program.error_output(),
                HasSubstr("cannot bind the wildcard address for port 80: Permission denied"));
}

TEST_F(DiscoveryTest, AStateFileThatCannotBeWrittenIsToldOnceAndTheNodesAreAnnounced) {
    // A directory in the place of the file.
    ASSERT_TRUE(std::filesystem::create_directory(path("state")));
    Listener listener(bus().address());
    start_discovery();
    start_node();
    EXPECT_TRUE(listener.wait_for(kUniverse, kNode));
    stop_node();
    EXPECT_TRUE(listener.wait_for(kUniverse, ""));
    discovery().signal(SIGTERM);
    EXPECT_EQ(discovery().wait_exit(), 0);
    const std::string said = discovery().error_output();
    const std::string complaint =
        "a later run will not know of nodes that leave in between: " + path("state") + ": Is a directory";
    EXPECT_THAT(said, HasSubstr(complaint));
    EXPECT_EQ(said.find(complaint), said.rfind(complaint)) << said;
}
