#include "lateness_meter.h"

#include <filesystem>
#include <fstream>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QTemporaryDir>

#include "support/eventually.h"

using namespace demo;

namespace {

using testing::HasSubstr;

/// A port that is free on the monitor's address.
class FreePort {
public:
    FreePort() {
        const int probe = socket(AF_INET, SOCK_DGRAM, 0);
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = inet_addr("127.0.0.3");
        socklen_t size = sizeof address_;
        bind(probe, reinterpret_cast<const sockaddr*>(&address_), size);
        getsockname(probe, reinterpret_cast<sockaddr*>(&address_), &size);
        close(probe);
    }

    [[nodiscard]] std::string place() const {
        return "127.0.0.3:" + std::to_string(ntohs(address_.sin_port));
    }

    /// Whether someone is there. A refusal comes back with the datagram after the refused one.
    [[nodiscard]] bool takes_datagrams() const {
        const int sender = socket(AF_INET, SOCK_DGRAM, 0);
        bool taken = connect(sender, reinterpret_cast<const sockaddr*>(&address_), sizeof address_) == 0;
        for (int i = 0; i < 50; ++i) {
            taken = taken && send(sender, "x", 1, 0) == 1;
        }
        close(sender);
        return taken;
    }

private:
    sockaddr_in address_{};
};

class LatenessMeterTest : public testing::Test {
protected:
    [[nodiscard]] std::filesystem::path path(const char* name) const {
        return directory_.filePath(QString::fromLatin1(name)).toStdString();
    }
    /// A shell script in the monitor's place.
    [[nodiscard]] LatenessMeter meter(const std::string& script) const {
        std::ofstream(path("monitor")) << "#!/bin/sh\n" << script;
        std::filesystem::permissions(path("monitor"), std::filesystem::perms::owner_all);
        return {path("monitor"), path("chase.art"), path("monitor.log")};
    }
    /// Listens, and makes its answer when it is asked to end.
    [[nodiscard]] std::string listening_script(const std::string& answer) const {
        return "trap '" + answer + "' TERM\necho 'cuewright-monitor: listening on " + port_.place() +
               ", receive buffer 212992 bytes' >&2\necho '{\"type\":\"monitor\"}'\n"
               "while :; do sleep 0.01; done\n";
    }
    /// Asks it to end once it listens; what it has measured.
    [[nodiscard]] static std::string result_of(LatenessMeter& meter) {
        EXPECT_TRUE(eventually([&meter] { return meter.settled(); }));
        meter.ask_to_end();
        EXPECT_TRUE(eventually([&meter] { return meter.ended(); }));
        return meter.result();
    }

    QTemporaryDir directory_;
    FreePort port_;
};

}  // namespace

TEST_F(LatenessMeterTest, WhatTheMonitorSaysAtItsEndIsShownInMilliseconds) {
    LatenessMeter meter = this->meter(listening_script(
        R"(echo "{\"type\":\"comparison\",\"compared\":484,\"lateness_ns\":)"
        R"({\"min\":-9000,\"p50\":61000,\"p99\":214000,\"p99_9\":1,\"max\":1402499}}"; exit 0)"));
    ASSERT_TRUE(eventually([&meter] { return meter.settled(); }));
    EXPECT_EQ(meter.place(), port_.place());
    EXPECT_EQ(meter.reason(), "");
    const std::string result = result_of(meter);
    EXPECT_THAT(result, HasSubstr("packets      min      p50      p99      max\n"));
    EXPECT_THAT(result, HasSubstr("    484   -0.009    0.061    0.214    1.402\n"));
    EXPECT_THAT(result, HasSubstr("not judged"));
    // A forwarder that is started anew sends no copies.
    EXPECT_EQ(meter.place(), "");
}

TEST_F(LatenessMeterTest, CopiesThatComeAfterTheEndAreNotRefused) {
    ASSERT_FALSE(port_.takes_datagrams());
    LatenessMeter meter = this->meter(listening_script("exit 0"));
    static_cast<void>(result_of(meter));
    EXPECT_TRUE(port_.takes_datagrams());
}

TEST_F(LatenessMeterTest, AMonitorThatIsMissingIsNamed) {
    LatenessMeter meter("/nonexistent/cuewright-monitor", path("chase.art"), path("monitor.log"));
    EXPECT_TRUE(meter.settled());
    EXPECT_EQ(meter.place(), "");
    EXPECT_EQ(meter.reason(), "\"/nonexistent/cuewright-monitor\" is not there");
    EXPECT_EQ(result_of(meter),
              "lateness of the chase: not measured; \"/nonexistent/cuewright-monitor\" is not there\n");
}

TEST_F(LatenessMeterTest, AProgramThatCannotBeStartedIsNoFailure) {
    LatenessMeter meter(directory_.path().toStdString(), path("chase.art"), path("monitor.log"));
    EXPECT_TRUE(meter.settled());
    EXPECT_THAT(meter.reason(), HasSubstr("cannot start"));
    EXPECT_THAT(result_of(meter), HasSubstr("not measured; cannot start"));
}

TEST_F(LatenessMeterTest, AMonitorThatEndsBeforeItListensHasItsLastWordsShown) {
    LatenessMeter meter = this->meter("echo 'cuewright-monitor: no' >&2; exit 1");
    ASSERT_TRUE(eventually([&meter] { return meter.settled(); }));
    EXPECT_EQ(meter.place(), "");
    EXPECT_EQ(meter.reason(), "the monitor ended with status 1: cuewright-monitor: no");
    EXPECT_EQ(result_of(meter), "lateness of the chase: not measured; " + meter.reason() + "\n");
}

TEST_F(LatenessMeterTest, AMonitorThatHasNothingToCompareSaysSo) {
    LatenessMeter meter =
        this->meter(listening_script("echo \"cuewright-monitor: nothing came\" >&2; exit 1"));
    EXPECT_EQ(result_of(meter),
              "lateness of the chase: not measured; the monitor ended with status 1: "
              "cuewright-monitor: nothing came\n");
}

TEST_F(LatenessMeterTest, AMonitorThatHeedsNoSignalIsKilled) {
    LatenessMeter meter = this->meter(listening_script(""));
    ASSERT_TRUE(eventually([&meter] { return meter.settled(); }));
    meter.ask_to_end();
    EXPECT_THAT(meter.result(), HasSubstr("not measured; the monitor was ended by signal 9"));
}

TEST_F(LatenessMeterTest, OneThatNeverListensIsGivenUp) {
    LatenessMeter meter = this->meter("while :; do sleep 0.01; done\n");
    EXPECT_FALSE(meter.settled());
    meter.give_up("the monitor does not start");
    EXPECT_TRUE(meter.settled());
    EXPECT_TRUE(meter.ended());
    EXPECT_EQ(result_of(meter), "lateness of the chase: not measured; the monitor does not start\n");
}
