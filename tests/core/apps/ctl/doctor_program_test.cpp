// The doctor as a program, on machines that a test makes up and where there is no bus.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "support/ending.h"
#include "system_root.h"

using testing::ElementsAre;
using tests::Ending;

namespace {

/// Runs the doctor, without the checks that need a bus, on the machine.
Ending look_at(const SystemRoot& system, const std::vector<std::string>& more = {}) {
    std::vector<std::string> line{CTL_PROGRAM, "doctor", "--json"};
    for (const char* const check : {"bus", "service", "forwarder", "discovery", "data", "ports"}) {
        line.insert(line.end(), {"--skip", check});
    }
    line.insert(line.end(), more.begin(), more.end());
    return tests::run_to_end(line, {"DBUS_SESSION_BUS_ADDRESS=", "XDG_RUNTIME_DIR=/nonexistent",
                                    "CUEWRIGHT_DOCTOR_ROOT=" + system.root()});
}

/// "CHECK VERDICT" of each; a problem without advice has a mark.
std::vector<std::string> verdicts(const Ending& ending) {
    std::vector<std::string> result;
    const QJsonObject report = QJsonDocument::fromJson(QByteArray::fromStdString(ending.output)).object();
    const QJsonArray checks = report.value(QLatin1String("checks")).toArray();
    for (const QJsonValue check : checks) {
        const auto field = [object = check.toObject()](const char* key) {
            return object.value(QLatin1String(key)).toString().toStdString();
        };
        const bool helpless = field("verdict") == "problem" && field("advice").empty();
        result.push_back(field("check") + " " + field("verdict") + (helpless ? "?" : ""));
    }
    return result;
}

/// A machine that is well, as far as its files say.
SystemRoot& well(SystemRoot& system) {
    return system.file("/proc/sys/net/core/rmem_max", "4194304\n")
        .file("/proc/sys/net/core/wmem_max", "4194304\n")
        .governor("cpu0", "performance")
        .clock_source("tsc")
        .memory(1000, 600);
}

}  // namespace

TEST(DoctorProgramTest, AMachineWhereEverythingIsWrong) {
    SystemRoot system;
    system.file("/proc/sys/net/core/rmem_max", "212992\n")
        .file("/proc/sys/net/core/wmem_max", "212992\n")
        .governor("cpu0", "powersave")
        .clock_source("jiffies")
        .memory(1000, 20);
    const Ending ending = look_at(system);
    EXPECT_EQ(ending.status, 1) << ending.error;
    EXPECT_THAT(verdicts(ending),
                ElementsAre("buffers problem", "governor problem", "clock problem", "memory problem"));
}

TEST(DoctorProgramTest, OneOfThemIsEnoughForItsStatus) {
    // Of the system time the kernel has the word, not a file.
    const std::vector<std::string> no_clock{"--skip", "clock"};
    SystemRoot good;
    const Ending none = look_at(well(good), no_clock);
    EXPECT_EQ(none.status, 0) << none.error;
    EXPECT_THAT(verdicts(none), ElementsAre("buffers good", "governor good", "memory good"));
    SystemRoot buffers;
    const Ending slow = look_at(well(buffers).file("/proc/sys/net/core/wmem_max", "1\n"), no_clock);
    EXPECT_EQ(slow.status, 1);
    EXPECT_THAT(verdicts(slow), ElementsAre("buffers problem", "governor good", "memory good"));
    SystemRoot governor;
    const Ending late = look_at(well(governor).governor("cpu0", "ondemand"), no_clock);
    EXPECT_EQ(late.status, 1);
    EXPECT_THAT(verdicts(late), ElementsAre("buffers good", "governor problem", "memory good"));
    SystemRoot memory;
    const Ending full = look_at(well(memory).memory(1000, 20), no_clock);
    EXPECT_EQ(full.status, 1);
    EXPECT_THAT(verdicts(full), ElementsAre("buffers good", "governor good", "memory problem"));
    SystemRoot clock;
    const Ending coarse = look_at(well(clock).clock_source("refined-jiffies"));
    EXPECT_EQ(coarse.status, 1);
    EXPECT_THAT(verdicts(coarse),
                ElementsAre("buffers good", "governor good", "clock problem", "memory good"));
}
