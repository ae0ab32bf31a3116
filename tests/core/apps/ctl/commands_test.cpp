// Every command, seen by what it does to the service and to the wire.

#include <csignal>
#include <filesystem>
#include <fstream>

#include <QTemporaryDir>

#include "ctl_test.h"
#include "support/eventually.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr std::chrono::milliseconds kFrame{2};

class CommandsTest : public CtlTest {
protected:
    /// True when no further datagram comes once those that were sent are taken away: the service has been
    /// told before the command ended, and loopback delivers at once.
    bool is_silent() {
        wire_.arrived();
        return wire_.arrived().empty();
    }
    std::string zone_file(const std::string& text) {
        const std::string path = directory_.path().toStdString() + "/zones.json";
        std::ofstream(path) << text;
        return path;
    }

    ForwarderSocket wire_;
    QTemporaryDir directory_;
};

}  // namespace

TEST_F(CommandsTest, PlayBrightnessPauseAndStopShowOnTheWire) {
    add_playlist(1, true, Recording{}.dmx(1, {200}).frame_delay(kFrame), {wire_.output("1")});
    start();
    EXPECT_EQ(ctl_well({"play", "1"}), "");
    EXPECT_EQ(wire_.next().level(0), 200);
    ctl_well({"brightness", "1", "50"});
    wire_.arrived();
    EXPECT_EQ(wire_.next().level(0), 100);
    ctl_well({"pause", "1"});
    EXPECT_TRUE(is_silent());
    ctl_well({"play", "1"});
    EXPECT_EQ(wire_.next().level(0), 100);
    ctl_well({"stop", "1"});
    EXPECT_TRUE(is_silent());

    const Ending ending = ctl({"pause", "1"});
    EXPECT_EQ(ending.status, 1);
    EXPECT_EQ(
        ending.error,
        "cuewrightctl: the service refused to pause playlist 1: it is not loaded (\"cuewrightctl play\" "
        "loads it)\n");
}

TEST_F(CommandsTest, StopWithoutAnIdStopsAll) {
    add_playlist(1, true, Recording{}.dmx(1, {1}).frame_delay(kFrame), {wire_.output("1")});
    add_playlist(2, true, Recording{}.dmx(2, {2}).frame_delay(kFrame), {wire_.output("2")});
    start();
    ctl_well({"play", "1"});
    ctl_well({"play", "2"});
    ctl_well({"stop"});
    EXPECT_TRUE(is_silent());
    EXPECT_EQ(ctl({"pause", "2"}).status, 1);
}

TEST_F(CommandsTest, LogLevelAndSpeedReachTheService) {
    add_playlist(1, true, Recording{}.dmx(1, {200}).frame_delay(kFrame), {wire_.output("1")});
    start();
    ctl_well({"play", "1"});
    EXPECT_EQ(ctl_well({"log-level"}), "3\n");
    ctl_well({"log-level", "4"});
    EXPECT_EQ(ctl_well({"log-level", "--json"}), "{\"level\":4}\n");
    ctl_well({"speed", "1", "75"});
    EXPECT_TRUE(service().wait_for_log(
        "info [Repeater::set_speed_boost] Set speed boost (playlist_id:1, speed_boost:75)"));
    ctl_well({"log-level", "-3"});
    EXPECT_EQ(ctl_well({"log-level"}), "-3\n");
}

TEST_F(CommandsTest, UnicastOffTakesTheNodesTheirFramesAndOnGivesThemBack) {
    if (!network_missing().empty()) {
        GTEST_SKIP() << "needs a network of its own: " << network_missing();
    }
    add_playlist(1, true, Recording{}.dmx(5, {7}).frame_delay(kFrame), {});
    start();
    Discovery discovery(bus().address());
    discovery.announce("1:5:192.0.2.9:" + std::to_string(wire_.port()));
    ctl_well({"play", "1"});
    EXPECT_EQ(wire_.next().ip(), "192.0.2.9");
    ctl_well({"unicast", "off"});
    EXPECT_TRUE(is_silent());
    ctl_well({"unicast", "on"});
    EXPECT_EQ(wire_.next().level(0), 7);
}

TEST_F(CommandsTest, ZonesOfAFileDecideWhatIsLit) {
    show()
        .recording("1.rec", Recording{}.dmx(1, {10, 20, 30}).bytes())
        .playlist(ShowPlaylist(1).effect(ShowEffect("1.rec").fps(200).output(wire_.output("1")).zone(1, 4)));
    start();
    const auto lit = [this] {
        ctl_well({"play", "1"});
        const std::vector<int> levels = wire_.next().levels(3);
        ctl_well({"stop"});
        wire_.arrived();
        return levels;
    };
    ctl_well(
        {"zones", "init",
         zone_file(
             R"([{"id": 4, "priority": 1, "channels": [0]}, {"id": 5, "priority": 9, "channels": []}])")});
    EXPECT_EQ(lit(), (std::vector<int>{10, 0, 0}));
    EXPECT_EQ(ctl_with_input(R"([{"id": 4, "priority": 1, "channels": [1, 2]}])", "zones update").status, 0);
    EXPECT_EQ(lit(), (std::vector<int>{0, 20, 30}));
    // Both are there now, so they cannot be added, and each can be removed once.
    EXPECT_FALSE(controller().add_zone({4, 1, {}}));
    EXPECT_FALSE(controller().add_zone({5, 1, {}}));
    ctl_well({"zones", "remove", "4", "5"});
    EXPECT_FALSE(controller().remove_zone(4));
    ctl_well({"zones", "add", zone_file(R"([{"id": 4, "priority": 1, "channels": [2]}])")});
    EXPECT_EQ(lit(), (std::vector<int>{0, 0, 30}));
    ctl_well({"zones", "clear"});
    EXPECT_FALSE(controller().remove_zone(4));
}

TEST_F(CommandsTest, RefusedZonesComeWithTheLikelyCauses) {
    add_playlist(1, true, Recording{}.dmx(1, {1}).frame_delay(kFrame), {wire_.output("1")});
    start();
    const std::string file = zone_file(
        R"([{"id": 7, "priority": 1, "channels": [2]}, {"id": 8, "priority": 1, "channels": [2]}])");
    ASSERT_TRUE(controller().add_zone({8, 1, {}}));
    Ending ending = ctl({"zones", "add", file});
    EXPECT_EQ(ending.status, 1);
    EXPECT_THAT(ending.error, AllOf(HasSubstr("refused to add zone 8: the id is taken"),
                                    HasSubstr("; 1 before it went in")));
    ending = ctl({"zones", "remove", "9"});
    EXPECT_EQ(ending.status, 1);
    EXPECT_THAT(ending.error, HasSubstr("refused to remove zone 9: there is no such zone"));
    ASSERT_TRUE(controller().remove_zone(7));
    ending = ctl({"zones", "update", file});
    EXPECT_EQ(ending.status, 1);
    EXPECT_THAT(ending.error, HasSubstr("refused to update zone 7: there is no such zone"));

    ASSERT_TRUE(controller().play(1));
    for (const std::vector<std::string>& line :
         std::vector<std::vector<std::string>>{{"zones", "init", file}, {"zones", "clear"}}) {
        ending = ctl(line);
        EXPECT_EQ(ending.status, 1);
        EXPECT_THAT(ending.error, HasSubstr("zones change only while no playlist is loaded"));
    }
}

TEST_F(CommandsTest, APlaylistThatCannotBePlayedIsRefusedWithTheLikelyCauses) {
    start();
    const Ending ending = ctl({"play", "77"});
    EXPECT_EQ(ending.status, 1);
    EXPECT_THAT(ending.error, AllOf(HasSubstr("refused to play playlist 77"),
                                    HasSubstr("playlists/playlists.json has no \"Id\" 77"),
                                    HasSubstr("playlists/77.json is missing")));
}

TEST_F(CommandsTest, WaitReturnsOnceThePlaylistHasEnded) {
    constexpr int kFrames = 64;
    Recording recording;
    for (int frame = 0; frame < kFrames; ++frame) {
        recording.dmx(1, {static_cast<std::uint8_t>(frame)}).frame_delay(kFrame);
    }
    add_playlist(1, false, recording.fill_to((recording.size() + 511) / 512 * 512), {wire_.output("1")});
    start();
    EXPECT_EQ(ctl_well({"play", "1", "--wait"}), "");
    // Not before its end: every frame is there.
    EXPECT_EQ(wire_.arrived().size(), static_cast<std::size_t>(kFrames));
}

TEST_F(CommandsTest, WaitGivesUpAtItsTimeoutAndThePlaylistPlaysOn) {
    add_playlist(1, true, Recording{}.dmx(1, {1}).frame_delay(kFrame), {wire_.output("1")});
    start();
    const Ending ending = ctl({"play", "1", "--wait", "--timeout", "0.1"});
    EXPECT_EQ(ending.status, 4);
    EXPECT_THAT(ending.error, HasSubstr("playlist 1 has not ended within 0.1 s; one that loops never does"));
    wire_.arrived();
    EXPECT_EQ(wire_.next().level(0), 1);
}

TEST_F(CommandsTest, WaitEndsByASignalAndByTheServicesEnd) {
    add_playlist(1, true, Recording{}.dmx(1, {1}).frame_delay(kFrame), {wire_.output("1")});
    start();
    {
        tests::ChildProgram waiting(command({"play", "1", "--wait"}), environment());
        static_cast<void>(wire_.next());
        waiting.signal(SIGINT);
        EXPECT_EQ(ending_of(waiting).status, 128 + SIGINT);
    }
    controller().stop();
    wire_.arrived();
    tests::ChildProgram waiting(command({"play", "1", "--wait"}), environment());
    static_cast<void>(wire_.next());
    service().program().signal(SIGKILL);
    ASSERT_TRUE(wait_own_end());
    const Ending ending = ending_of(waiting);
    EXPECT_EQ(ending.status, 3);
    // Killed before or after it had answered the call.
    EXPECT_THAT(ending.error, HasSubstr("has ended"));
}

TEST_F(CommandsTest, AServiceThatHangsIsTold) {
    start();
    halt_service();
    const Ending ending = ctl({"--call-timeout", "0.2", "stop"});
    EXPECT_EQ(ending.status, 4);
    EXPECT_THAT(ending.error,
                HasSubstr("com.torvexserver.Cuewright has not answered stop within 0.2 s; it may still do"));
    const Ending doctor = ctl({"--call-timeout", "0.2", "doctor"});
    EXPECT_EQ(doctor.status, 1);
    EXPECT_THAT(doctor.output, HasSubstr("PROBLEM  service    com.torvexserver.Cuewright has not answered"));
    resume_service();
}

TEST_F(CommandsTest, WatchPrintsWhatHappensAsItHappens) {
    add_playlist(3, false, Recording{}.dmx(1, {1}).frame_delay(kFrame), {wire_.output("1")});
    start();
    tests::ChildProgram watch(command({"watch", "--json"}), environment());
    tests::ChildProgram people(command({"watch"}), environment());
    ASSERT_TRUE(watch.wait_for_output("\"name\":\"com.torvexserver.Netsurvey\""));
    ASSERT_TRUE(people.wait_for_output("com.torvexserver.Netsurvey is not there\n"));
    EXPECT_THAT(watch.output(), HasSubstr("\"name\":\"com.torvexserver.Cuewright\",\"owner\":\":"));
    EXPECT_TRUE(controller().play(3));
    EXPECT_TRUE(watch.wait_for_output("{\"event\":\"playlist_stopped\",\"playlist_id\":3,\"time\":\""));
    EXPECT_TRUE(people.wait_for_output("  playlist 3 has ended\n"));
    {
        Discovery discovery(bus().address());
        EXPECT_TRUE(people.wait_for_output("com.torvexserver.Netsurvey is there (:"));
        discovery.announce("1:0:10.0.0.5:6454");
        EXPECT_TRUE(watch.wait_for_output("\"message\":\"1:0:10.0.0.5:6454\""));
        EXPECT_TRUE(people.wait_for_output("nodes: +10.0.0.5:6454 on universe 0\n"));
    }
    service().program().signal(SIGKILL);
    ASSERT_TRUE(wait_own_end());
    EXPECT_TRUE(people.wait_for_output("com.torvexserver.Cuewright is not there\n"));
    for (tests::ChildProgram* const program : {&watch, &people}) {
        program->signal(SIGTERM);
        const Ending ending = ending_of(*program);
        EXPECT_EQ(ending.status, 0);
        EXPECT_EQ(ending.error, "");
    }
}

TEST_F(CommandsTest, WatchEndsWhenTheBusGoes) {
    start();
    tests::ChildProgram watch(command({"watch"}), environment());
    ASSERT_TRUE(watch.wait_for_output("Netsurvey"));
    kill_bus();
    const Ending ending = ending_of(watch);
    EXPECT_EQ(ending.status, 3);
    EXPECT_THAT(ending.error, HasSubstr("has gone"));
}

TEST_F(CommandsTest, ListNamesThePlaylistsOfTheRunningService) {
    add_playlist(12, true, Recording{}.dmx(1, {1}).frame_delay(kFrame), {wire_.output("1")});
    add_playlist(3, false, Recording{}.dmx(1, {1}).frame_delay(kFrame), {wire_.output("1")});
    start();
    EXPECT_EQ(ctl_well({"list"}), "3\tends\teffects: 1\n12\tloops\teffects: 1\n");
    EXPECT_EQ(ctl_well({"list", "--json"}),
              "[{\"loop\":false,\"playlist_id\":3,\"recordings\":[\"3.rec\"]},"
              "{\"loop\":true,\"playlist_id\":12,\"recordings\":[\"12.rec\"]}]\n");
    show().file("playlists/3.json", "{");
    const Ending ending = ctl({"list", "--data", show().root().toStdString()});
    EXPECT_EQ(ending.status, 1);
    EXPECT_THAT(ending.error, HasSubstr("playlists/3.json: Playlist effects file format invalid"));
}

TEST(NoServiceTest, EveryCommandSaysSoAndStartsNone) {
    const QTemporaryDir directory;
    const std::string root = directory.path().toStdString();
    const std::string started = root + "/started";
    std::ofstream(root + "/com.torvexserver.Cuewright.service")
        << "[D-BUS Service]\nName=com.torvexserver.Cuewright\nExec=/usr/bin/touch " << started << "\n";
    const SessionBus bus(root, "<servicedir>" + root + "</servicedir>");
    ASSERT_TRUE(bus.running());
    for (const std::vector<std::string>& line :
         std::vector<std::vector<std::string>>{{"play", "1"},
                                               {"play", "1", "--wait"},
                                               {"pause", "1"},
                                               {"stop"},
                                               {"stop", "1"},
                                               {"brightness", "1", "2"},
                                               {"speed", "1", "2"},
                                               {"unicast", "on"},
                                               {"log-level"},
                                               {"zones", "clear"},
                                               {"zones", "remove", "1"},
                                               {"list"},
                                               {"blackout"}}) {
        std::vector<std::string> words{CTL_PROGRAM};
        words.insert(words.end(), line.begin(), line.end());
        tests::ChildProgram program(words, {"DBUS_SESSION_BUS_ADDRESS=" + bus.address()});
        const Ending ending = ending_of(program);
        EXPECT_EQ(ending.status, 3) << line.front();
        EXPECT_THAT(ending.error,
                    HasSubstr("com.torvexserver.Cuewright is not on the bus: start the service"));
    }
    EXPECT_FALSE(std::filesystem::exists(started));
}
