// --watch in a terminal: the second screen, drawn again and again, and given back.
#include <csignal>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child_program.h"
#include "support/terminal.h"
#include "udp_peer.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using tests::ChildProgram;
using tests::Terminal;
using tests::UdpPeer;

constexpr const char* kEnter = "\x1b[?1049h\x1b[?25l";
constexpr const char* kLeave = "\x1b[?25h\x1b[?1049l";
constexpr const char* kHome = "\x1b[H";

class ForwarderTerminalTest : public testing::Test {
protected:
    void SetUp() override {
        if (terminal_.name().empty()) {
            GTEST_SKIP() << "no pseudo-terminals here";
        }
    }

    /// The program with its standard output, and nothing else, in the terminal.
    [[nodiscard]] std::vector<std::string> command(const char* option) const {
        return {"/bin/sh",
                "-c",
                "exec \"$0\" \"$@\" > " + terminal_.name(),
                FORWARDER_PROGRAM,
                "--port",
                std::to_string(port_),
                option};
    }

    Terminal terminal_{100, 30};
    std::uint16_t port_ = tests::free_port();
};

TEST_F(ForwarderTerminalTest, ScreenIsEnteredOnceAndDrawnAgainFromItsTop) {
    ChildProgram program(command("--watch"), {"LC_ALL=C.UTF-8"});
    ASSERT_TRUE(terminal_.read_until_text("no universe seen yet")) << program.error_output();
    EXPECT_EQ(terminal_.text().find(std::string(kEnter) + kHome + "received 0  rejected 0"), 0U);

    const UdpPeer node("127.0.0.2");
    UdpPeer().send(port_, tests::datagram("127.0.0.2", node.port(), tests::artdmx(9, 255)));
    ASSERT_TRUE(terminal_.read_until_text("       9  127.0.0.2:" + std::to_string(node.port())));
    EXPECT_TRUE(terminal_.read_until_text("████")) << "levels as blocks where the terminal speaks UTF-8";
    EXPECT_TRUE(terminal_.read_until_text(std::string("\x1b[J") + kHome + "received 1")) << "drawn over";
    EXPECT_EQ(terminal_.text().find(kEnter, 1), std::string::npos);
    EXPECT_THAT(terminal_.text(), HasSubstr("\x1b[K\r"));
    EXPECT_THAT(terminal_.text(), Not(HasSubstr(kLeave)));
}

TEST_F(ForwarderTerminalTest, ReportOnRequestStandsOnTheFirstScreenAndTheViewComesBack) {
    ChildProgram program(command("--watch"));
    ASSERT_TRUE(terminal_.read_until_text("no universe seen yet")) << program.error_output();
    program.signal(SIGUSR1);
    ASSERT_TRUE(terminal_.read_until_text(std::string(kLeave) + "received 0, accepted 0"));
    const std::size_t report = terminal_.text().find("received 0, accepted 0");
    ASSERT_TRUE(terminal_.read_until_text(std::string(kEnter) + kHome + "received 0", report));
}

TEST_F(ForwarderTerminalTest, LogLineIsWrittenOnTheFirstScreenWhereItStays) {
    ChildProgram program(command("--watch"));
    ASSERT_TRUE(terminal_.read_until_text("no universe seen yet")) << program.error_output();
    UdpPeer().send(port_, {1, 2, 3});
    ASSERT_TRUE(terminal_.read_until_text(kLeave)) << program.error_output();
    EXPECT_TRUE(terminal_.read_until_text(kEnter, terminal_.text().find(kLeave))) << "the view comes back";
}

TEST_F(ForwarderTerminalTest, EndGivesTheScreenBackBeforeTheLastReport) {
    for (const int signal : {SIGINT, SIGTERM}) {
        Terminal terminal(100, 30);
        terminal_ = std::move(terminal);
        ChildProgram program(command("--watch"));
        ASSERT_TRUE(terminal_.read_until_text("no universe seen yet")) << program.error_output();
        program.signal(signal);
        // First, since the program waits while a terminal that nobody reads is full.
        ASSERT_TRUE(terminal_.read_until_text("last error")) << "the table's head";
        EXPECT_EQ(program.wait_exit(), 0);
        EXPECT_LT(terminal_.text().rfind(kEnter), terminal_.text().rfind(kLeave));
        EXPECT_LT(terminal_.text().rfind(kLeave), terminal_.text().rfind("received 0, accepted 0"));
    }
}

TEST_F(ForwarderTerminalTest, LinesAreCutToTheTerminalsWidth) {
    Terminal narrow(40, 10);
    terminal_ = std::move(narrow);
    ChildProgram program(command("--watch"));
    ASSERT_TRUE(terminal_.read_until_text("no universe seen yet")) << program.error_output();
    EXPECT_THAT(terminal_.text(),
                AllOf(HasSubstr("universe  destination              fps  \x1b[K"), Not(HasSubstr("p50"))));
}

TEST_F(ForwarderTerminalTest, JsonStaysJsonInATerminal) {
    std::vector<std::string> words = command("--watch");
    words.emplace_back("--json");
    ChildProgram program(words);
    ASSERT_TRUE(terminal_.read_until_text(R"({"type":"watch","universes":[]})")) << program.error_output();
    EXPECT_EQ(terminal_.text().find('\x1b'), std::string::npos);
}

}  // namespace
