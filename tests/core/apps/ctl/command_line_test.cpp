// The command line of the built program, as far as it goes without a bus.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <QTemporaryDir>

#include "bus.h"
#include "bus_probe.h"
#include "posix/file_descriptor.h"
#include "support/ending.h"

using testing::HasSubstr;
using testing::StartsWith;
using tests::Ending;

namespace {

/// Runs the program where there is no bus.
Ending run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), CTL_PROGRAM);
    return tests::run_to_end(arguments, {"DBUS_SESSION_BUS_ADDRESS=", "XDG_RUNTIME_DIR=/nonexistent"});
}

/// How the address for these settings is refused, or what it is.
std::string address_of(const std::string& given, const char* session, const char* runtime_directory) {
    try {
        return ctl::bus_address(given, session, runtime_directory);
    } catch (const cli::Failure& failure) {
        EXPECT_EQ(failure.status(), ctl::kExitNotThere);
        return std::string("refused: ") + failure.what();
    }
}

}  // namespace

TEST(CommandLineTest, HelpAndVersionAreGivenWithoutABus) {
    const Ending help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output, HasSubstr("Examples:"));
    EXPECT_THAT(help.output, HasSubstr("Exit status:"));
    for (const char* command : {"play", "pause", "stop", "brightness", "speed", "unicast", "zones",
                                "log-level", "watch", "blackout", "doctor", "list"}) {
        EXPECT_THAT(help.output, HasSubstr(std::string("\n  ") + command + " ")) << help.output;
    }
    EXPECT_THAT(run({"blackout", "--help"}).output, HasSubstr("--dry-run"));
    EXPECT_THAT(run({"--version"}).output, StartsWith("cuewrightctl "));
}

TEST(CommandLineTest, AWrongLineIsRefusedWithTheReason) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> wrong{
        {{}, "A subcommand is required"},
        {{"play"}, "ID is required"},
        {{"play", "x"}, "Could not convert: ID = x"},
        {{"play", "1", "--timeout", "5"}, "--timeout requires --wait"},
        {{"brightness", "1", "101"}, "PERCENT: Value 101 not in range"},
        {{"speed", "1", "-5"}, "PERCENT: Value -5 not in range"},
        {{"unicast", "maybe"}, "STATE: maybe not in {on,off}"},
        {{"stop", "1", "2"}, "not expected: 2"},
        {{"zones"}, "A subcommand is required"},
        {{"doctor", "--skip", "lamp"}, "--skip: lamp not in"},
        {{"blackout", "--broadcast", "here"}, "--broadcast"},
        {{"--call-timeout", "0", "stop"}, "--call-timeout: Value 0 not in range"},
    };
    for (const auto& [line, reason] : wrong) {
        const Ending ending = run(line);
        EXPECT_EQ(ending.status, 2) << reason;
        EXPECT_THAT(ending.error, StartsWith("cuewrightctl: ")) << reason;
        EXPECT_THAT(ending.error, HasSubstr(reason));
        EXPECT_EQ(ending.output, "");
    }
}

TEST(CommandLineTest, WithoutABusEveryCommandSaysSo) {
    for (const std::vector<std::string>& line : std::vector<std::vector<std::string>>{{"play", "-3"},
                                                                                      {"play", "1", "--wait"},
                                                                                      {"stop"},
                                                                                      {"unicast", "on"},
                                                                                      {"log-level", "-2"},
                                                                                      {"zones", "clear"},
                                                                                      {"watch"},
                                                                                      {"list"},
                                                                                      {"blackout"}}) {
        const Ending ending = run(line);
        EXPECT_EQ(ending.status, 3) << line.front();
        EXPECT_THAT(ending.error, HasSubstr("there is no session bus: DBUS_SESSION_BUS_ADDRESS is not set"));
    }
    const Ending elsewhere = run({"--address", "unix:path=/nonexistent/bus", "stop"});
    EXPECT_EQ(elsewhere.status, 3);
    EXPECT_THAT(elsewhere.error,
                HasSubstr("cannot connect to the session bus at unix:path=/nonexistent/bus"));
}

TEST(CommandLineTest, TheDoctorLooksAtAllThatNeedsNoBus) {
    const Ending ending = run({"doctor"});
    EXPECT_EQ(ending.status, 1);
    EXPECT_EQ(ending.error, "");
    EXPECT_THAT(
        ending.output,
        StartsWith("PROBLEM  bus        there is no session bus: DBUS_SESSION_BUS_ADDRESS is not set"));
    for (const char* const check : {"service", "discovery"}) {
        const std::string name = check;
        EXPECT_THAT(ending.output, HasSubstr("\nunknown  " + name + std::string(11 - name.size(), ' ') +
                                             "not to be found out without the bus\n"));
    }
    for (const char* const check : {"forwarder", "data", "ports", "buffers", "governor", "clock", "memory"}) {
        EXPECT_THAT(ending.output,
                    testing::ContainsRegex(std::string("\n(good   |unknown|PROBLEM)  ") + check + " "));
    }
}

TEST(CommandLineTest, ABadZoneFileIsRefusedBeforeTheBusIsLookedFor) {
    const Ending ending = run({"zones", "init", "/nonexistent/zones.json"});
    EXPECT_EQ(ending.status, 1);
    EXPECT_THAT(ending.error, StartsWith("cuewrightctl: /nonexistent/zones.json: "));
}

TEST(BusAddressTest, TheGivenOneComesFirstThenTheSessionsThenTheUsersOwn) {
    const QTemporaryDir directory;
    const std::string runtime = directory.path().toStdString();
    EXPECT_EQ(address_of("unix:path=/a", "unix:path=/b", runtime.c_str()), "unix:path=/a");
    EXPECT_EQ(address_of("", "unix:path=/b", runtime.c_str()), "unix:path=/b");
    // The user's own counts only when it is there.
    EXPECT_THAT(address_of("", "", runtime.c_str()), StartsWith("refused: there is no session bus"));
    EXPECT_THAT(address_of("", nullptr, nullptr), StartsWith("refused: there is no session bus"));
}

TEST(BusAddressTest, AnAddressThatWouldStartABusIsRefused) {
    EXPECT_THAT(address_of("", "autolaunch:", nullptr), HasSubstr("would start a bus of its own"));
}

TEST(BusProbeTest, ADaemonThatTakesNobodyInHasNotAnswered) {
    const QTemporaryDir directory;
    const std::string path = directory.path().toStdString() + "/bus";
    const std::string address = "unix:path=" + path + ",guid=0";
    // Nobody there at all is for the connecting to tell.
    EXPECT_TRUE(ctl::daemon_answers(address, std::chrono::milliseconds(0)));
    EXPECT_TRUE(ctl::daemon_answers("tcp:host=127.0.0.1,port=1", std::chrono::milliseconds(0)));

    const posix::FileDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    path.copy(name.sun_path, sizeof name.sun_path - 1);
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    ASSERT_EQ(listen(listener.get(), 1), 0);
    // The system lets a client in whose greeting nobody reads, and a few more; the last ones it keeps out.
    for (int client = 0; client < 4; ++client) {
        EXPECT_FALSE(ctl::daemon_answers(address, std::chrono::milliseconds(20)));
    }
}
