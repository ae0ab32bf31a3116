// Starting the real program: its lines, their order and priorities, and every way in which it gives up.

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>

#include <sys/wait.h>
#include <syslog.h>

#include "beat.h"
#include "cuewright/version.h"
#include "service_test.h"

using namespace integration;
using testing::ElementsAre;

namespace {

constexpr char kVersionLine[] = "info cuewright Version: " CUEWRIGHT_VERSION " ";
constexpr char kLevelLine[] = "info cuewright log level: 3 ";
constexpr char kWorkerLine[] = "info [Repeater::do_render_work] Start render worker";
constexpr char kNoBusLine[] =
    "err main.cpp Cannot connect to the D-Bus session bus.\nTo start it, run:\n\teval `dbus-launch "
    "--auto-syntax`\n";

using Lines = std::vector<std::string>;

/// The worker's line comes whenever its thread runs; takes it out of the others.
Lines without_worker(Lines lines) {
    lines.erase(std::remove(lines.begin(), lines.end(), kWorkerLine), lines.end());
    return lines;
}

class StartUpTest : public ServiceTest {
protected:
    /// Runs the program to its end and expects status 1 and nothing printed; the lines of its log.
    Lines failed_start(const ServiceSettings& settings) {
        Service failing(installation(), settings);
        EXPECT_EQ(failing.program().start_error(), 0);
        const std::optional<int> status = failing.program().wait_end();
        EXPECT_TRUE(status.has_value()) << "the program runs on";
        EXPECT_TRUE(status && WIFEXITED(*status) && WEXITSTATUS(*status) == 1) << status.value_or(-1);
        EXPECT_EQ(failing.output(), "");
        return failing.log();
    }
};

ServiceSettings with(const std::vector<std::string>& environment) {
    ServiceSettings settings;
    settings.environment = environment;
    return settings;
}

}  // namespace

TEST_F(StartUpTest, ItsLinesComeInOrderAndAreTheOnlyOnes) {
    start();
    const Lines lines = service().log();
    EXPECT_THAT(without_worker(lines),
                ElementsAre(kVersionLine, kLevelLine,
                            "info [Repeater::set_root_dir] Set root directory (path:" + data_root() + ")",
                            "info [Repeater::set_playlist_desc_path] Set playlist desc path "
                            "(path:playlists/playlists.json)"));
    EXPECT_EQ(lines.size(), 5u);
    // The engine, and with it the worker, comes after the banner.
    EXPECT_EQ(lines[0], kVersionLine);
    EXPECT_EQ(lines[1], kLevelLine);
}

TEST_F(StartUpTest, TheSystemLogIsOpenedWithoutIdentityOrOptionsForLocalUseZero) {
    start();
    const std::vector<Lines> calls = service().log_calls();
    ASSERT_FALSE(calls.empty());
    EXPECT_THAT(calls.front(), ElementsAre("openlog", "(none)", "0", std::to_string(LOG_LOCAL0)));
    for (const tests::SyslogLine& line : service().raw_log()) {
        EXPECT_EQ(line.facility, LOG_LOCAL0);
        EXPECT_EQ(line.priority, LOG_INFO);
    }
}

TEST_F(StartUpTest, BothObjectsAnswerOnceTheDataRootIsSet) {
    start();
    // What start() waits for is the data root's line. That registration comes before it shows where a refused
    // registration leaves no such line.
    EXPECT_EQ(controller().call_engine(QStringLiteral("stop")).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(controller().call_logger(QStringLiteral("getLevel")).type(), QDBusMessage::ReplyMessage);
}

TEST_F(StartUpTest, ALinkToTheProgramStillUsesTheDataBesideTheProgram) {
    std::filesystem::create_directory(installation().path() + "/elsewhere");
    std::filesystem::create_symlink(installation().path() + "/bin/cuewright",
                                    installation().path() + "/elsewhere/service");
    ServiceSettings settings;
    settings.program = "elsewhere/service";
    start(settings);
    EXPECT_THAT(
        service().log(),
        testing::Contains("info [Repeater::set_root_dir] Set root directory (path:" + data_root() + ")"));
}

TEST_F(StartUpTest, MissingDataDoesNotHinderTheStart) {
    std::filesystem::remove(installation().path() + "/data");
    start();
    EXPECT_FALSE(controller().play(1));
}

TEST_F(StartUpTest, WithoutABusVariableItSaysSoAndBuildsNoEngine) {
    EXPECT_THAT(failed_start({}), ElementsAre(kVersionLine, kLevelLine,
                                              "err main.cpp DBUS session bus variable not found "
                                              "(DBUS_SESSION_BUS_ADDRESS or DBUS_STARTER_ADDRESS)"));
}

TEST_F(StartUpTest, AnErrorLineBeginsWithPathLineAndFunctionAndNothingBetweenPathAndLine) {
    Service failing(installation(), {});
    ASSERT_TRUE(failing.program().wait_end().has_value());
    const std::vector<tests::SyslogLine> lines = failing.raw_log();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2].priority, LOG_ERR);
    EXPECT_TRUE(matches(lines[2].text,
                        R"(core/apps/output/repeater/src/main\.cpp[0-9]+ int main\(int, char ?\*\*\)\) )"
                        R"(DBUS session bus variable not found )"
                        R"(\(DBUS_SESSION_BUS_ADDRESS or DBUS_STARTER_ADDRESS\))"))
        << lines[2].text;
}

TEST_F(StartUpTest, TheStarterVariableAloneLeadsOnToTheBusConnection) {
    const Lines lines =
        failed_start(with({"DBUS_STARTER_ADDRESS=unix:path=" + installation().path() + "/nobody"}));
    EXPECT_THAT(without_worker(lines), ElementsAre(kVersionLine, kLevelLine, kNoBusLine));
    // The engine was there already.
    EXPECT_THAT(lines, testing::Contains(kWorkerLine));
}

TEST_F(StartUpTest, AnEmptyBusVariableCountsAsPresent) {
    const Lines lines = failed_start(with({"DBUS_SESSION_BUS_ADDRESS="}));
    EXPECT_THAT(without_worker(lines), ElementsAre(kVersionLine, kLevelLine, kNoBusLine));
}

TEST_F(StartUpTest, AnUnreachableBusIsNamedWithTheWayToStartOne) {
    const Lines lines =
        failed_start(with({"DBUS_SESSION_BUS_ADDRESS=unix:path=" + installation().path() + "/nobody"}));
    EXPECT_THAT(without_worker(lines), ElementsAre(kVersionLine, kLevelLine, kNoBusLine));
    EXPECT_THAT(lines, testing::Contains(kWorkerLine));
}

TEST_F(StartUpTest, ASecondInstanceEndsWithAnEmptyTextAndALineFeedAndTheFirstRunsOn) {
    const Beat beat;
    add_playlist(Beat::kPlaylist, true, Beat::recording(), {beat.output()});
    start();
    ASSERT_TRUE(controller().play(Beat::kPlaylist));
    ASSERT_TRUE(beat.wait_for_more(1));
    const Lines lines = failed_start(with({"DBUS_SESSION_BUS_ADDRESS=" + bus().address()}));
    EXPECT_THAT(without_worker(lines), ElementsAre(kVersionLine, kLevelLine, "err main.cpp \n"));
    EXPECT_TRUE(beat.wait_for_more(10)) << "what the first one plays plays on";
    EXPECT_EQ(beat.first_gap(), "");
    EXPECT_TRUE(controller().pause(Beat::kPlaylist));
}

TEST_F(StartUpTest, ANameThatTheBusDeniesIsReportedInTheBusesWords) {
    const SessionBus denying(
        installation().path(),
        "<policy context=\"mandatory\"><deny own=\"com.torvexserver.Cuewright\"/></policy>");
    ASSERT_TRUE(denying.running());
    const Lines lines = without_worker(failed_start(with({"DBUS_SESSION_BUS_ADDRESS=" + denying.address()})));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_THAT(lines[2],
                testing::StartsWith("err main.cpp Connection \":1.0\" is not allowed to own the service "
                                    "\"com.torvexserver.Cuewright\""));
    EXPECT_EQ(lines[2].back(), '\n');
}

/// Sees the steps that register the service on the bus.
class RegistrationTest : public StartUpTest {
protected:
    [[nodiscard]] ServiceSettings seen(std::vector<std::string> environment) const {
        environment.push_back("STEPS=" + file_);
        ServiceSettings settings = with(environment);
        settings.preload = INTEGRATION_REFUSING_BUS;
        return settings;
    }
    [[nodiscard]] Lines steps() const {
        Lines lines;
        std::ifstream file(file_);
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line);
        }
        return lines;
    }

private:
    const std::string file_ = installation().path() + "/steps";
};

/// All of them, in order. The options export all slots, of the engine all signals, too.
const Lines kSteps{
    "name com.torvexserver.Cuewright", "object / 0x330", "object /logger 0x110",
    "signal com.torvexserver.Netsurvey / com.torvexserver.Netsurvey.Dump OnArtnetNodesUpdated to "
    "update_artnet_node_map(QString)"};

TEST_F(RegistrationTest, TakesTheNameThenOffersTheEngineThenTheLoggerThenSubscribes) {
    start(seen({}));
    EXPECT_EQ(steps(), kSteps);
}

class RefusedStepTest : public RegistrationTest, public testing::WithParamInterface<int> {
protected:
    static constexpr std::array<const char*, 4> kNames{"", "/", "/logger", "OnArtnetNodesUpdated"};
};

TEST_P(RefusedStepTest, EndsTheStartThereBeforeThePathsAreSet) {
    const SessionBus willing(installation().path());
    ASSERT_TRUE(willing.running());
    const ServiceSettings settings =
        seen({"DBUS_SESSION_BUS_ADDRESS=" + willing.address(),
              std::string("REFUSE=") + kNames.at(static_cast<std::size_t>(GetParam()))});
    EXPECT_THAT(without_worker(failed_start(settings)),
                ElementsAre(kVersionLine, kLevelLine, "err main.cpp \n"));
    EXPECT_EQ(steps(), Lines(kSteps.begin(), kSteps.begin() + GetParam() + 1));
}

INSTANTIATE_TEST_SUITE_P(
    Steps, RefusedStepTest, testing::Values(1, 2, 3), [](const testing::TestParamInfo<int>& step) {
        return std::string(step.param == 1 ? "Engine" : step.param == 2 ? "Logger" : "Subscription");
    });

TEST_F(StartUpTest, TerminationSignalsHaveNoHandlerAndEndItAtOnce) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        SessionBus own_bus(installation().path());
        ASSERT_TRUE(own_bus.running());
        Service running(installation(), with({"DBUS_SESSION_BUS_ADDRESS=" + own_bus.address()}));
        ASSERT_TRUE(running.wait_for_log(kWorkerLine));
        running.program().signal(number);
        const std::optional<int> status = running.program().wait_end();
        ASSERT_TRUE(status.has_value());
        EXPECT_TRUE(WIFSIGNALED(*status) && WTERMSIG(*status) == number) << *status;
        // No orderly end: that would close the system log.
        EXPECT_THAT(running.log_calls(), testing::Not(testing::Contains(ElementsAre("closelog"))));
    }
}

TEST_F(StartUpTest, AFailedStartClosesTheSystemLogOnItsWayOut) {
    Service failing(installation(), {});
    ASSERT_TRUE(failing.program().wait_end().has_value());
    EXPECT_THAT(failing.log_calls().back(), ElementsAre("closelog"));
}
