// Runs the built demo from its start to its end, each time in a network namespace of its own: its port is
// free there, and the test decides whether there is an eth0.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QTemporaryDir>

#include "support/child_program.h"
#include "support/eventually.h"

namespace {

using namespace std::chrono_literals;

/// The show itself takes less than forty seconds, which its own test says; the machine may be busy.
constexpr auto kDeadline = 200s;

/// The bus, the forwarder and the service, which run for as long as the demo; at first there is the monitor,
/// too.
constexpr std::size_t kPrograms = 3;

/// In the line of a rate that is not the expected one.
constexpr const char* kRateComplaint = " frames a second, measured ";

constexpr const char* kLoopback = "ip link set lo up || exit 99; ";
constexpr const char* kWired =
    "ip link add eth0 type veth peer name peer && ip link set eth0 addrgenmode none && "
    "ip addr add 10.7.0.1/24 broadcast 10.7.0.255 dev eth0 && ip link set peer up && ip link set eth0 up || "
    "exit 99; ";

/// Process id to command name.
struct Child {
    pid_t pid;
    std::string name;
};

/// Children of a process, from the system's process table.
std::vector<Child> children_of(pid_t parent) {
    std::vector<Child> children;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream file(entry.path() / "stat");
        std::string line;
        std::getline(file, line);
        const std::size_t open = line.find('(');
        const std::size_t closed = line.rfind(')');
        if (open == std::string::npos || closed == std::string::npos) {
            continue;
        }
        std::istringstream rest(line.substr(closed + 1));
        char state = 0;
        pid_t its_parent = 0;
        rest >> state >> its_parent;
        if (its_parent == parent && state != 'Z') {
            children.push_back({std::stoi(line), line.substr(open + 1, closed - open - 1)});
        }
    }
    return children;
}

std::size_t count(const std::string& text, const std::string& what) {
    std::size_t found = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) {
        ++found;
    }
    return found;
}

/// How a run ended, and what it has said.
struct Ending {
    std::optional<int> status;
    std::string output;
    std::string error;
};

class DemoRunTest : public testing::Test {
protected:
    void SetUp() override {
        if (std::system("unshare -Urn true 2>/dev/null") != 0) {
            GTEST_SKIP() << "this kernel gives an ordinary user no network namespaces";
        }
    }

    [[nodiscard]] std::vector<std::string> in_namespace(const std::string& script) const {
        return {"/usr/bin/unshare", "-Urn", "/bin/sh", "-c", script};
    }
    [[nodiscard]] std::vector<std::string> environment() const {
        return {"TMPDIR=" + temporary_.path().toStdString()};
    }
    [[nodiscard]] bool left_nothing() const {
        return std::filesystem::is_empty(temporary_.path().toStdString());
    }
    /// Runs a demo in a network of its own. One that complains of rates is run anew, twice at most: a machine
    /// that is held up in the middle of a step spoils its rate, and a rate that is really wrong is so each
    /// time.
    [[nodiscard]] Ending run_to_the_end(const std::string& script) const {
        for (int run = 1;; ++run) {
            tests::ChildProgram demo(in_namespace(script), environment());
            const std::optional<int> status = demo.wait_exit(kDeadline);
            if (run == 3 || count(demo.output(), kRateComplaint) == 0) {
                return {status, demo.output(), demo.error_output()};
            }
        }
    }

    QTemporaryDir temporary_;
};

/// The line of the summary that begins with `label`.
std::string row(const std::string& output, const std::string& label) {
    std::istringstream lines(output.substr(std::min(output.find("Summary:"), output.size())));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(label)) {
            return line;
        }
    }
    return {};
}

}  // namespace

TEST_F(DemoRunTest, WhatComesOutIsWhatIsExpected) {
    const Ending ending = run_to_the_end(std::string(kLoopback) + "exec " CUEWRIGHT_DEMO);
    const std::string& output = ending.output;
    EXPECT_EQ(ending.status, 0) << output << ending.error;
    // 16 rows of what playlists showed and 12 of single facts.
    EXPECT_EQ(count(output, " ok\n"), 28U) << output;
    EXPECT_EQ(count(output, "NOT"), 0U);
    EXPECT_NE(output.find("All that came out is what was expected."), std::string::npos);
    EXPECT_NE(output.find("|11111111222222222222222211111111|"), std::string::npos);
    // Without eth0 the service names no address; the port is there, and the maker's code before it.
    EXPECT_NE(output.find("This machine has no eth0 with a broadcast address"), std::string::npos);
    EXPECT_NE(output.find("\n   f0 7f 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 36 19 00 00"),
              std::string::npos)
        << output;
    EXPECT_THAT(row(output, "lateness of the chase"),
                testing::MatchesRegex(CUEWRIGHT_MONITOR_IS_BUILT
                                          ? "lateness of the chase, ms +[1-9][0-9]*( +-?[0-9]+[.][0-9]+){4}"
                                          : "lateness of the chase: not measured; .* is not there"));
    EXPECT_TRUE(left_nothing());
}

TEST_F(DemoRunTest, ABrightnessCallThatIsLeftOutIsFoundAndNothingElse) {
    // On the way, the broadcast step where there is an eth0: nothing may leave through it. And without a
    // monitor, which is judged by nothing.
    const Ending ending = run_to_the_end(std::string(kLoopback) + kWired +
                                         CUEWRIGHT_DEMO
                                         " --skip-call brightness-50 --monitor /nonexistent; status=$?; ip "
                                         "-s -s link show eth0 | grep -A1 TX; exit $status");
    const std::string& output = ending.output;
    EXPECT_EQ(ending.status, 1) << output << ending.error;
    EXPECT_TRUE(row(output, "brightness 50 %").ends_with("NOT OK")) << output;
    EXPECT_EQ(count(output, "NOT OK"), 1U) << output;
    EXPECT_EQ(row(output, "lateness"), "lateness of the chase: not measured; \"/nonexistent\" is not there");
    EXPECT_NE(output.find("brightness 50 %, playlist 1: the highest level should be 127 and is 191"),
              std::string::npos)
        << output;
    EXPECT_NE(output.find("What came out is NOT what was expected."), std::string::npos);
    EXPECT_TRUE(row(output, "broadcast").ends_with(" ok")) << output;
    EXPECT_NE(output.find("Here that is 10.7.0.255"), std::string::npos);
    std::istringstream counters(output.substr(std::min(output.rfind("TX"), output.size())));
    std::string heads;
    long bytes = -1;
    long packets = -1;
    std::getline(counters, heads);
    counters >> bytes >> packets;
    EXPECT_EQ(packets, 0) << output;
}

TEST_F(DemoRunTest, AForwarderThatDiesEndsTheDemoWithAMessage) {
    tests::ChildProgram demo(in_namespace(std::string(kLoopback) + "exec " CUEWRIGHT_DEMO), environment());
    ASSERT_TRUE(demo.wait_for_output("4. Brightness")) << demo.output() << demo.error_output();
    pid_t forwarder = -1;
    for (const Child& child : children_of(demo.pid())) {
        if (child.name.starts_with("cuewright-forw")) {
            forwarder = child.pid;
        }
    }
    ASSERT_GT(forwarder, 1);
    ASSERT_EQ(kill(forwarder, SIGKILL), 0);
    EXPECT_EQ(demo.wait_exit(), 1);
    EXPECT_NE(demo.error_output().find("the forwarder was ended by signal 9"), std::string::npos)
        << demo.error_output();
    EXPECT_TRUE(children_of(demo.pid()).empty());
    EXPECT_TRUE(left_nothing());
}

TEST_F(DemoRunTest, AnInterruptLeavesNoProcessAndNoFile) {
    for (const int signal : {SIGINT, SIGTERM}) {
        tests::ChildProgram demo(in_namespace(std::string(kLoopback) + "exec " CUEWRIGHT_DEMO),
                                 environment());
        ASSERT_TRUE(demo.wait_for_output("3. Play")) << demo.output() << demo.error_output();
        const std::vector<Child> children = children_of(demo.pid());
        EXPECT_GE(children.size(), kPrograms);
        demo.signal(signal);
        EXPECT_EQ(demo.wait_exit(), 128 + signal);
        for (const Child& child : children) {
            EXPECT_TRUE(kill(child.pid, 0) == -1 && errno == ESRCH) << child.name;
        }
        EXPECT_TRUE(left_nothing());
    }
}

TEST_F(DemoRunTest, EvenAKilledDemoLeavesNoProcess) {
    tests::ChildProgram demo(in_namespace(std::string(kLoopback) + "exec " CUEWRIGHT_DEMO), environment());
    ASSERT_TRUE(demo.wait_for_output("3. Play")) << demo.output() << demo.error_output();
    const std::vector<Child> children = children_of(demo.pid());
    EXPECT_GE(children.size(), kPrograms);
    demo.signal(SIGKILL);
    EXPECT_EQ(demo.wait_exit(), 128 + SIGKILL);
    for (const Child& child : children) {
        // Whoever adopts them may be slow to take note of their end.
        EXPECT_TRUE(eventually([&child] {
            std::ifstream file("/proc/" + std::to_string(child.pid) + "/stat");
            std::string line;
            std::getline(file, line);
            return line.empty() || line.find(") Z ") != std::string::npos;
        })) << child.name;
    }
}
