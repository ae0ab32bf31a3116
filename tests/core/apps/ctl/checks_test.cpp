// Each of the doctor's checks, passing and failing.

#include "checks.h"

#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/timex.h>

#include "support/recording.h"
#include "support/show_directory.h"
#include "system_root.h"

using ctl::BusFacts;
using ctl::Finding;
using ctl::Verdict;
using testing::HasSubstr;

namespace {

BusFacts all_well() {
    BusFacts facts;
    facts.address = "unix:path=/bus";
    facts.player = 42;
    facts.nodes = 3;
    return facts;
}

void expect_good(const Finding& finding, const std::string& text) {
    EXPECT_EQ(finding.verdict, Verdict::Good) << finding.check << ": " << finding.text;
    EXPECT_THAT(finding.text, HasSubstr(text));
}

/// A problem, and one that says what to do.
void expect_problem(const Finding& finding, const std::string& text, const std::string& advice) {
    EXPECT_EQ(finding.verdict, Verdict::Problem) << finding.check << ": " << finding.text;
    EXPECT_THAT(finding.text, HasSubstr(text));
    EXPECT_THAT(finding.advice, HasSubstr(advice));
}

constexpr std::uint64_t kMebibyte = 1024 * 1024;

}  // namespace

TEST(ChecksTest, Bus) {
    expect_good(ctl::check_bus(all_well()), "connected to unix:path=/bus");
    BusFacts facts = all_well();
    facts.bus_problem = "there is no session bus";
    expect_problem(ctl::check_bus(facts), "there is no session bus", "dbus-run-session");
    EXPECT_EQ(ctl::check_service(facts).verdict, Verdict::Unknown);
    EXPECT_EQ(ctl::check_discovery(facts).verdict, Verdict::Unknown);
}

TEST(ChecksTest, Service) {
    expect_good(ctl::check_service(all_well()), "process 42 answers");
    BusFacts facts = all_well();
    facts.player.reset();
    expect_problem(ctl::check_service(facts), "is not on the bus", "start cuewright");
    facts = all_well();
    facts.player_problem = "has not answered getLevel within 10 s";
    expect_problem(ctl::check_service(facts), "has not answered", "end the process");
}

TEST(ChecksTest, Discovery) {
    expect_good(ctl::check_discovery(all_well()), "knows 3 nodes");
    BusFacts facts = all_well();
    facts.nodes.reset();
    expect_problem(ctl::check_discovery(facts), "Netsurvey is not on the bus", "start cuewright-netsurvey");
    facts.discovery_problem = "answers with an error";
    expect_problem(ctl::check_discovery(facts), "answers with an error", "start cuewright-netsurvey");
    facts.nodes = 0;
    expect_problem(ctl::check_discovery(facts), "knows no node", "UDP port 6454");
}

TEST(ChecksTest, Forwarder) {
    expect_good(
        ctl::check_forwarder(SystemRoot().udp("0100007F:1936", 77).process(9, "cuewright-forwa", 77).root()),
        "cuewright-forwa (process 9) listens on 127.0.0.1:6454");
    // Somebody else's processes cannot be looked into.
    expect_good(ctl::check_forwarder(SystemRoot().udp("0100007F:1936", 77).root()), "may not look into");

    expect_problem(ctl::check_forwarder(SystemRoot().udp("0100007F:1937", 77).root()),
                   "nobody listens on 127.0.0.1:6454", "start cuewright-forwarder");
    expect_problem(ctl::check_forwarder(SystemRoot().udp("00000000:1936", 78).process(10, "olad", 78).root()),
                   "goes to olad (process 10), which has port 6454 on all addresses",
                   "start cuewright-forwarder");
    expect_problem(
        ctl::check_forwarder(SystemRoot().udp("0100007F:1936", 79).process(11, "imposter", 79).root()),
        "imposter (process 11) has 127.0.0.1:6454", "end that program");
    // A connected socket hears one peer only.
    expect_problem(ctl::check_forwarder(SystemRoot().udp("0100007F:1936", 77, "0100007F:9999").root()),
                   "nobody listens", "start cuewright-forwarder");
    EXPECT_EQ(ctl::check_forwarder(SystemRoot().root()).verdict, Verdict::Unknown);
}

TEST(ChecksTest, Ports) {
    SystemRoot system;
    system.udp("0100007F:1936", 77).udp("0100007F:1937", 78).udp("00000000:1938", 79);
    expect_good(ctl::check_ports(system.root(), std::set<int>{6454, 6455}),
                "every port of the outputs has a listener: 6455 a process that this user may not look into");
    expect_good(ctl::check_ports(system.root(), std::set<int>{}), "no output names a port");
    expect_problem(ctl::check_ports(system.root(), std::set<int>{6454, 6455, 6456, 7000}), ": 6456, 7000",
                   "--port 6454 --port 6456 --port 7000");
    EXPECT_EQ(ctl::check_ports(system.root(), std::nullopt).verdict, Verdict::Unknown);
}

TEST(ChecksTest, ListenersOfPortsAreNamedAndMustBeTheForwarder) {
    expect_good(
        ctl::check_ports(SystemRoot().udp("0100007F:1937", 78).process(9, "cuewright-forwa", 78).root(),
                         std::set<int>{6455}),
        "6455 cuewright-forwa (process 9)");
    expect_problem(ctl::check_ports(SystemRoot().udp("0100007F:1937", 78).process(9, "imposter", 78).root(),
                                    std::set<int>{6455}),
                   "imposter (process 9) has 127.0.0.1:6455", "end imposter");
}

TEST(ChecksTest, TwoProgramsThatHaveTheArtNetPortOnAllAddresses) {
    SystemRoot system;
    system.udp("00000000:1936", 81).process(4, "cuewright-netsu", 81).udp("0100007F:1936", 82);
    expect_good(ctl::check_ports(system.root(), std::set<int>{6454}), "every port");
    system.udp("00000000:1936", 83).process(5, "cuewright-monit", 83);
    expect_problem(ctl::check_ports(system.root(), std::set<int>{6454}),
                   "*:6454 is shared by cuewright-netsu (process 4) and cuewright-monit (process 5)",
                   "--packet-socket");
    // Also where the outputs are not known, and where processes are not to be seen.
    expect_problem(
        ctl::check_ports(SystemRoot().udp("00000000:1936", 81).udp("00000000:1936", 83).root(), std::nullopt),
        "is shared by a process that this user may not look into and a process", "--packet-socket");
    // One program may have two sockets.
    expect_good(ctl::check_ports(SystemRoot()
                                     .udp("00000000:1936", 81)
                                     .udp("00000000:1936", 83)
                                     .process(4, "olad", 81)
                                     .process(4, "olad", 83)
                                     .root(),
                                 std::set<int>{6454}),
                "every port");
}

TEST(ChecksTest, Buffers) {
    const auto limits = [](const std::string& receive, const std::string& send) {
        SystemRoot system;
        system.file("/proc/sys/net/core/rmem_max", receive).file("/proc/sys/net/core/wmem_max", send);
        return ctl::check_buffers(system.root());
    };
    expect_good(limits("1280000\n", "1280000\n"),
                "net.core.rmem_max is 1280000, net.core.wmem_max is 1280000");
    expect_problem(limits("212992\n", "1280000\n"), "rmem_max is 212992: a buffer of that size holds 332",
                   "\"sysctl -w net.core.rmem_max=4194304\"");
    expect_problem(limits("1280000\n", "212992\n"), "wmem_max is 212992: a buffer of that size holds 332",
                   "\"sysctl -w net.core.wmem_max=4194304\"");
    expect_problem(limits("212992\n", "212992\n"), "lost; net.core.wmem_max is",
                   "\"sysctl -w net.core.rmem_max=4194304 net.core.wmem_max=4194304\"");
    EXPECT_EQ(limits("1280000\n", "").verdict, Verdict::Unknown);
    EXPECT_EQ(ctl::check_buffers(SystemRoot().root()).verdict, Verdict::Unknown);
}

TEST(ChecksTest, Governor) {
    expect_good(ctl::check_governor(
                    SystemRoot().governor("cpu0", "performance").governor("cpu1", "performance").root()),
                "performance");
    expect_problem(ctl::check_governor(SystemRoot()
                                           .governor("cpu0", "ondemand")
                                           .governor("cpu1", "performance")
                                           .governor("cpu2", "ondemand")
                                           .root()),
                   "ondemand on cpu0, cpu2", "echo performance");
    EXPECT_EQ(ctl::check_governor(SystemRoot().root()).verdict, Verdict::Unknown);
}

TEST(ChecksTest, Clock) {
    expect_good(ctl::check_clock(SystemRoot().clock_source("arch_sys_counter").root(), {true}),
                "monotonic clock from arch_sys_counter");
    expect_problem(ctl::check_clock(SystemRoot().clock_source("arch_sys_counter").root(), {false}),
                   "not synchronised", "systemd-timesyncd");
    expect_problem(ctl::check_clock(SystemRoot().clock_source("refined-jiffies").root(), {true}),
                   "driven by refined-jiffies", "available_clocksource");
}

TEST(ChecksTest, TheClocksStateIsTheKernels) {
    // Read on both sides, since a time service may set it in between.
    timex state{};
    const auto synchronised = [&state] {
        return adjtimex(&state) != TIME_ERROR && (state.status & STA_UNSYNC) == 0;
    };
    const bool before = synchronised();
    const bool told = ctl::read_clock_state().synchronised;
    EXPECT_TRUE(told == before || told == synchronised());
}

TEST(ChecksTest, Memory) {
    expect_good(ctl::check_memory(SystemRoot().memory(1000, 600).root(), 700 * kMebibyte),
                "600 MiB of 1000 MiB available");
    // A fifth more than its bytes, and what the rest of the device needs.
    expect_problem(ctl::check_memory(SystemRoot().memory(1000, 600).root(), 790 * kMebibyte),
                   "needs about 948 MiB", "divide it");
    expect_problem(ctl::check_memory(SystemRoot().memory(1000, 63).root(), kMebibyte), "63 MiB of",
                   "stop playlists");
    EXPECT_EQ(ctl::check_memory(SystemRoot().root(), 1).verdict, Verdict::Unknown);
}

TEST(ChecksTest, Data) {
    ShowDirectory show;
    show.recording("1.rec", Recording{}.dmx(1, {1}).bytes())
        .playlist(ShowPlaylist(1).effect(ShowEffect("1.rec")));
    const std::string directory = show.root().toStdString();
    const Finding good = ctl::check_data(ctl::read_show(directory), "");
    expect_good(good, directory + ": 1 playlist can be read");
    EXPECT_THAT(good.advice, HasSubstr("cuewright-check " + directory));

    show.playlist(ShowPlaylist(2).effect(ShowEffect("away.rec")));
    expect_problem(ctl::check_data(ctl::read_show(directory), ""), directory + "/away.rec: not found",
                   "cuewright-check");
    show.recording("away.rec", {}).file("playlists/2.json", "{");
    expect_problem(ctl::check_data(ctl::read_show(directory), ""),
                   directory + "/playlists/2.json: Playlist effects file format invalid", "cuewright-check");
    expect_problem(ctl::check_data(ctl::read_show(directory + "/nowhere"), ""),
                   "nowhere/playlists/playlists.json: No such file or directory", "cuewright-check");
    show.file("playlists/playlists.json", "[]");
    expect_problem(ctl::check_data(ctl::read_show(directory), ""), "has no playlist", "cuewright-check");
    EXPECT_EQ(ctl::check_data({}, "the service is not there").verdict, Verdict::Unknown);
}
