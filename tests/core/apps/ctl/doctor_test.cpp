// The doctor, looking at a device that is well and at one that is not.

#include <sstream>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "ctl_test.h"
#include "support/eventually.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

/// What says something about this machine alone is left out.
std::vector<std::string> line(const std::vector<std::string>& more = {}) {
    std::vector<std::string> words{"doctor"};
    for (const char* check : {"buffers", "governor", "clock", "memory"}) {
        words.insert(words.end(), {"--skip", check});
    }
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

class DoctorTest : public CtlTest {
protected:
    void SetUp() override {
        if (!network_missing().empty()) {
            GTEST_SKIP() << "needs a network of its own: " << network_missing();
        }
        add_playlist(1, true, Recording{}.dmx(1, {1}).frame_delay(2ms),
                     {"1:192.0.2.1:6454", "1:192.0.2.1:7001"});
    }
};

}  // namespace

TEST_F(DoctorTest, ADeviceThatIsWell) {
    start();
    FakeDiscovery discovery(bus().address(), QStringLiteral("1:3:192.0.2.9:6454"));
    tests::ChildProgram forwarder({CTL_FORWARDER, "--port", "6454", "--port", "7001"});
    ASSERT_TRUE(forwarder.wait_for_error("listening on 127.0.0.1:7001,"));
    // The system's table of sockets may leave out one while others come and go.
    Ending ending;
    EXPECT_TRUE(eventually([&] {
        ending = ctl(line());
        return ending.status == 0;
    })) << ending.output
        << ending.error;
    EXPECT_THAT(ending.output, HasSubstr("good     service    process " +
                                         std::to_string(service().program().pid()) + " answers"));
    EXPECT_THAT(ending.output, HasSubstr("good     forwarder  cuewright-forwarder (process " +
                                         std::to_string(forwarder.pid()) + ") listens on 127.0.0.1:6454"));
    EXPECT_THAT(ending.output, HasSubstr("good     discovery  knows 1 node\n"));
    EXPECT_THAT(ending.output, HasSubstr("good     data       " + data_root() + ": 1 playlist can be read"));
    EXPECT_THAT(ending.output, HasSubstr("good     ports      every port of the outputs has a listener: 7001 "
                                         "cuewright-forwarder (process " +
                                         std::to_string(forwarder.pid()) + ")\n"));
}

TEST_F(DoctorTest, ADeviceThatIsNot) {
    start();
    show().playlist(ShowPlaylist(2).effect(ShowEffect("away.rec")));
    const Ending ending = ctl(line({"--json"}));
    EXPECT_EQ(ending.status, 1);
    const QJsonObject report = QJsonDocument::fromJson(QByteArray::fromStdString(ending.output)).object();
    EXPECT_FALSE(report.value(QLatin1String("good")).toBool(true));
    std::vector<std::string> verdicts;
    const QJsonArray checks = report.value(QLatin1String("checks")).toArray();
    for (const QJsonValue check : checks) {
        const QJsonObject object = check.toObject();
        const bool problem = object.value(QLatin1String("verdict")).toString() == QLatin1String("problem");
        verdicts.push_back(object.value(QLatin1String("check")).toString().toStdString() + " " +
                           object.value(QLatin1String("verdict")).toString().toStdString());
        // Every problem comes with something to do.
        EXPECT_TRUE(!problem || !object.value(QLatin1String("advice")).toString().isEmpty());
    }
    EXPECT_THAT(verdicts, testing::ElementsAre("bus good", "service good", "forwarder problem",
                                               "discovery problem", "data problem", "ports problem"));
}

TEST_F(DoctorTest, AllOfItIsLookedAt) {
    start();
    const Ending ending = ctl({"doctor"});
    std::vector<std::string> checks;
    int problems = 0;
    std::istringstream lines(ending.output);
    for (std::string text; std::getline(lines, text);) {
        // What is to be done stands below its check.
        if (text.starts_with(' ')) {
            continue;
        }
        std::istringstream words(text);
        std::string verdict;
        std::string check;
        std::string finding;
        words >> verdict >> check >> finding;
        EXPECT_THAT(verdict, testing::AnyOf("good", "unknown", "PROBLEM")) << text;
        EXPECT_NE(finding, "") << text;
        problems += verdict == "PROBLEM" ? 1 : 0;
        checks.push_back(check);
    }
    EXPECT_THAT(checks, testing::ElementsAre("bus", "service", "forwarder", "discovery", "data", "ports",
                                             "buffers", "governor", "clock", "memory"));
    // Neither forwarder nor discovery runs here.
    EXPECT_GE(problems, 2);
    EXPECT_EQ(ending.status, 1);
}
