// The whole program on the loopback interface.
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "artnet/forwarding_datagram.h"
#include "posix/file_descriptor.h"
#include "posix/ipv4.h"
#include "support/artnet_sender.h"
#include "support/child_program.h"
#include "support/recording.h"
#include "support/terminal.h"

using namespace std::chrono_literals;

namespace {

using testing::HasSubstr;
using tests::ArtNetSender;
using tests::ChildProgram;

std::vector<std::string> command(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {MONITOR_PROGRAM, "--port", "0"});
    return arguments;
}

/// The port that the running program names; 0 when it does not come up.
std::uint16_t port_of(const ChildProgram& program) {
    if (!program.wait_for_error(", receive buffer")) {
        return 0;
    }
    const std::string text = program.error_output();
    return static_cast<std::uint16_t>(std::atoi(text.c_str() + text.find("0.0.0.0:") + 8));
}

/// The last line of the output that is an object of this type.
nlohmann::json last_of(const ChildProgram& program, const std::string& type) {
    nlohmann::json last;
    std::istringstream lines(program.output());
    for (std::string line; std::getline(lines, line);) {
        const auto object = nlohmann::json::parse(line, nullptr, false);
        if (object.is_object() && object["type"] == type) {
            last = object;
        }
    }
    return last;
}

TEST(MonitorProgramTest, StreamsAreShownAsJsonUntilASignal) {
    ChildProgram program(command({"--json"}));
    const std::uint16_t port = port_of(program);
    ASSERT_NE(port, 0) << program.error_output();
    const ArtNetSender sender;
    for (const std::uint8_t sequence : {std::uint8_t{1}, std::uint8_t{2}, std::uint8_t{4}}) {
        sender.send(port, tests::dmx_packet(5, {7, 8, 9}, sequence));
    }
    sender.send(port, {'x'});
    program.signal(SIGINT);
    ASSERT_EQ(program.wait_exit(), 0) << program.error_output();
    const nlohmann::json last = last_of(program, "monitor");
    ASSERT_EQ(last["streams"].size(), 1U) << program.output();
    EXPECT_EQ(last["streams"][0]["universe"], 5);
    EXPECT_EQ(last["streams"][0]["source"], "127.0.0.1:" + std::to_string(sender.port()));
    EXPECT_EQ(last["streams"][0]["packets"], 3);
    EXPECT_EQ(last["streams"][0]["lost"], 1);
    EXPECT_EQ(last["streams"][0]["levels"], nlohmann::json({7, 8, 9}));
    EXPECT_EQ(last["not_artnet"], 1);
}

TEST(MonitorProgramTest, WrappedDatagramsAreShownByTheirDestination) {
    ChildProgram program(command({"--wrapped", "--until-idle", "200ms"}));
    const std::uint16_t port = port_of(program);
    ASSERT_NE(port, 0) << program.error_output();
    std::vector<std::uint8_t> bytes(artnet::kForwardingHeaderSize);
    artnet::write_forwarding_header(std::span<unsigned char, artnet::kForwardingHeaderSize>(bytes), 1,
                                    "10.0.0.9", 6454);
    const std::vector<std::uint8_t> packet = tests::dmx_packet(6, std::vector<std::uint8_t>(512, 3));
    bytes.insert(bytes.end(), packet.begin(), packet.end());
    ArtNetSender().send(port, bytes);
    ASSERT_EQ(program.wait_exit(), 0) << program.error_output();
    EXPECT_THAT(program.output(), HasSubstr("universe 6 to 10.0.0.9:6454: "));
}

TEST(MonitorProgramTest, WhoLosesItsUnicastToTheMonitorIsNamed) {
    // As the discovery has its port.
    const posix::FileDescriptor discovery(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    sockaddr_in place = posix::ipv4_sockaddr(INADDR_ANY, 0);
    socklen_t size = sizeof place;
    ASSERT_EQ(setsockopt(discovery.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
    ASSERT_EQ(bind(discovery.get(), reinterpret_cast<const sockaddr*>(&place), size), 0);
    ASSERT_EQ(getsockname(discovery.get(), reinterpret_cast<sockaddr*>(&place), &size), 0);
    const std::uint16_t port = ntohs(place.sin_port);

    ChildProgram program({MONITOR_PROGRAM, "--port", std::to_string(port)});
    ASSERT_EQ(port_of(program), port) << program.error_output();
    EXPECT_TRUE(program.wait_for_error(
        "monitor_program_test (process " + std::to_string(getpid()) + ") shares *:" + std::to_string(port) +
        "; unicast that came to it comes here now; watch with --packet-socket"))
        << program.error_output();
    // And so it does.
    ArtNetSender().send(port, tests::dmx_packet(5, {7}));
    EXPECT_TRUE(program.wait_for_output("universe 5 from ")) << program.output();
    char byte = 0;
    EXPECT_EQ(recv(discovery.get(), &byte, sizeof byte, 0), -1);
}

class MonitorCompareTest : public testing::Test {
protected:
    void SetUp() override {
        Recording recording;
        for (std::uint8_t frame = 1; frame <= 20; ++frame) {
            recording.dmx(1, {frame}).dmx(2, {frame, frame}).frame_delay(1ms);
        }
        ASSERT_TRUE(recording.fill_to(2048).write(path("show.rec")));
    }
    [[nodiscard]] std::string path(const char* name) const {
        return directory_.filePath(QString::fromLatin1(name)).toStdString();
    }

    QTemporaryDir directory_;
};

TEST_F(MonitorCompareTest, WhatArrivesIsHeldAgainstTheRecordingAndDrawn) {
    ChildProgram program(command({"--json", "--compare", path("show.rec"), "--plot", path("plot.svg")}));
    const std::uint16_t port = port_of(program);
    ASSERT_NE(port, 0) << program.error_output();
    const ArtNetSender sender;
    for (std::uint8_t frame = 1; frame <= 20; ++frame) {
        sender.send(port, tests::dmx_packet(1, {frame}));
        if (frame != 10) {
            sender.send(port, tests::dmx_packet(2, {frame, frame}));
        }
    }
    sender.send(port, tests::dmx_packet(2, {77, 77}));
    sender.send(port, tests::dmx_packet(3, {1}));
    program.signal(SIGTERM);
    ASSERT_EQ(program.wait_exit(), 0) << program.error_output();
    const nlohmann::json report = last_of(program, "comparison");
    EXPECT_EQ(report["compared"], 39);
    EXPECT_EQ(report["missing"], 1);
    EXPECT_EQ(report["extra"], 1);
    EXPECT_EQ(report["ignored"], 1);
    // All were sent at once: none can be earlier than its due time by more than the recording is long.
    EXPECT_GE(report["lateness_ns"]["min"].get<std::int64_t>(), -19'000'000);
    std::ifstream plot(path("plot.svg"));
    const std::string picture{std::istreambuf_iterator<char>(plot), {}};
    EXPECT_THAT(picture, HasSubstr("</svg>"));
}

TEST_F(MonitorCompareTest, WithoutAnythingToCompareItFailsWithAReason) {
    ChildProgram program(command({"--compare", path("show.rec"), "--duration", "10ms"}));
    EXPECT_EQ(program.wait_exit(), 1);
    EXPECT_THAT(program.error_output(), HasSubstr("show.rec: nothing came that could be compared"));
}

TEST_F(MonitorCompareTest, WrongCommandLinesAndFilesAreNamed) {
    const auto complaint = [](std::vector<std::string> arguments, int status) {
        ChildProgram program(command(std::move(arguments)));
        EXPECT_EQ(program.wait_exit(), status);
        return program.error_output();
    };
    EXPECT_THAT(complaint({"--plot", "a.svg"}, 2), HasSubstr("--plot"));
    EXPECT_THAT(complaint({"--compare", path("show.rec"), "--plot", "a.gif"}, 2), HasSubstr(".svg or .png"));
    EXPECT_THAT(complaint({"--compare", path("none.rec")}, 1), HasSubstr("none.rec"));
    EXPECT_THAT(complaint({"--until-idle", "0"}, 2), HasSubstr("--until-idle"));
}

TEST_F(MonitorCompareTest, ALongReadingShowsHowFarItIs) {
    tests::Terminal terminal(100, 30);
    if (terminal.name().empty()) {
        GTEST_SKIP() << "no pseudo-terminals here";
    }
    // A recording that goes on as long as the test wants it to.
    ASSERT_EQ(mkfifo(path("long.rec").c_str(), 0600), 0);
    ChildProgram program({"/bin/sh", "-c", "exec \"$0\" --port 0 --compare \"$1\" 2> \"$2\"", MONITOR_PROGRAM,
                          path("long.rec"), terminal.name()});
    std::ofstream recording(path("long.rec"), std::ios::binary);
    EXPECT_TRUE(terminal.read_until([&recording](const std::string& text) {
        // A block of the reader's.
        recording.write(std::string(512 - 18, '\0').c_str(), 512 - 18);
        const std::vector<std::uint8_t> packet = tests::dmx_packet(1, {});
        recording.write(reinterpret_cast<const char*>(packet.data()), 18);
        recording.flush();
        return text.find("\r\x1b[Kreading ") != std::string::npos;
    })) << terminal.text();
    EXPECT_THAT(terminal.text(), HasSubstr(path("long.rec") + "  "));
}

TEST(MonitorTerminalTest, TheScreenIsEnteredDrawnAndGivenBack) {
    const posix::FileDescriptor terminal(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    const winsize size{24, 120, 0, 0};
    std::array<char, 64> name{};
    if (!terminal || grantpt(terminal.get()) != 0 || unlockpt(terminal.get()) != 0 ||
        ptsname_r(terminal.get(), name.data(), name.size()) != 0 ||
        ioctl(terminal.get(), TIOCSWINSZ, &size) != 0) {
        GTEST_SKIP() << "no pseudo-terminals here";
    }
    const posix::FileDescriptor held_open(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    std::string text;
    const auto shown = [&](const std::string& wanted) {
        const auto end = std::chrono::steady_clock::now() + 60s;
        while (text.find(wanted) == std::string::npos && std::chrono::steady_clock::now() < end) {
            pollfd wait{terminal.get(), POLLIN, 0};
            std::array<char, 4096> part{};
            if (poll(&wait, 1, 10) == 1) {
                const ssize_t bytes = read(terminal.get(), part.data(), part.size());
                text.append(part.data(), bytes < 0 ? 0 : static_cast<std::size_t>(bytes));
            }
        }
        return text.find(wanted) != std::string::npos;
    };
    ChildProgram program(
        {"/bin/sh", "-c", std::string("exec \"$0\" --port 0 > ") + name.data(), MONITOR_PROGRAM},
        {"LC_ALL=C.UTF-8"});
    const std::uint16_t port = port_of(program);
    ASSERT_NE(port, 0) << program.error_output();
    EXPECT_TRUE(shown("\x1b[?1049h\x1b[?25l\x1b[H0 streams")) << text;
    ArtNetSender().send(port, tests::dmx_packet(9, {255, 0, 255}));
    EXPECT_TRUE(shown("█ █\x1b[K\r")) << text;
    program.signal(SIGINT);
    EXPECT_TRUE(shown("\x1b[?25h\x1b[?1049luniverse 9 from 127.0.0.1:")) << text;
    EXPECT_EQ(program.wait_exit(), 0);
}

}  // namespace
