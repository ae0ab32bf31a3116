// The logger's birth and death. Qt speaks from within both: openlog() and closelog() are wrapped to do so.

#include <cstdio>
#include <cstdlib>
#include <string>

#include <syslog.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QtDebug>

#include "ondra/logger.h"
#include "support/child_process.h"
#include "support/syslog_records.h"

extern "C" {
void __real_openlog(const char* identity, int option, int facility);
void __real_closelog();
void __wrap_openlog(const char* identity, int option, int facility);
void __wrap_closelog();

void __wrap_openlog(const char* identity, int option, int facility) {
    qWarning("Qt speaks during the construction");
    __real_openlog(identity, option, facility);
}

void __wrap_closelog() {
    qWarning("Qt speaks during the destruction");
    __real_closelog();
}
}

namespace {

using ondra::Logger;
using testing::ElementsAre;
using Calls = std::vector<std::vector<std::string>>;

/// Registered before the logger exists, so it runs after the logger's end.
const int kRegistered = std::atexit([] {
    qWarning("Qt speaks after the destruction");
    qCritical("and again");
});

class LoggerLifetimeTest : public testing::Test {
protected:
    LoggerLifetimeTest() {
        setenv(tests::kSyslogFileVariable, path_.c_str(), 1);
        // What a run that was killed has left under the same process number.
        std::remove(path_.c_str());
    }
    ~LoggerLifetimeTest() override { std::remove(path_.c_str()); }

    const std::string path_ = testing::TempDir() + "logger_lifetime_test." + std::to_string(getpid());
};

// Each runs in a child, so that the logger is constructed there anew.

TEST_F(LoggerLifetimeTest, ConstructionOpensTheSystemLogAndDropsWhatQtSaysMeanwhile) {
    testing::internal::CaptureStderr();
    const tests::ChildReport report = tests::run_in_child(0, [] {
        Logger::instance()->setOutput(Logger::Syslog);
        qWarning("after the construction");
        return std::string("done");
    });
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_EQ(report.text, "done");
    const Calls calls = tests::syslog_calls(path_);
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_THAT(calls[0], ElementsAre("openlog", "(none)", "0", std::to_string(LOG_LOCAL0)));
    EXPECT_THAT(calls[1][4], testing::EndsWith(") after the construction"));
}

TEST_F(LoggerLifetimeTest, NewLoggerWritesUpToLevelThreeToTheConsoleWithContext) {
    testing::internal::CaptureStderr();
    const tests::ChildReport report = tests::run_in_child(0, [] {
        Logger* const logger = Logger::instance();
        logger->log(3, nullptr, 0, nullptr, "shown");
        logger->log(4, nullptr, 0, nullptr, "hidden");
        logger->log(-2, nullptr, 7, "f", "failed");
        return std::to_string(logger->getLevel());
    });
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "shown\n7 f) failed\n");
    EXPECT_EQ(report.text, "3");
}

TEST_F(LoggerLifetimeTest, InstanceIsOneObject) {
    const tests::ChildReport report = tests::run_in_child(
        0, [] { return std::string(Logger::instance() == Logger::instance() ? "one" : "two"); });
    EXPECT_EQ(report.text, "one");
}

TEST_F(LoggerLifetimeTest, ErrorNumberSurvivesTheConstruction) {
    const tests::ChildReport report = tests::run_in_child(0, [] {
        errno = ENOENT;
        Logger::instance();
        return std::to_string(errno);
    });
    EXPECT_EQ(report.text, std::to_string(ENOENT));
}

using LoggerLifetimeDeathTest = LoggerLifetimeTest;

TEST_F(LoggerLifetimeDeathTest, DestructionClosesTheSystemLogAndNothingIsWrittenFromThenOn) {
    ASSERT_EQ(kRegistered, 0);
    const auto live_and_die = [] {
        Logger::instance()->setOutput(Logger::Syslog);
        Logger::instance()->log(3, nullptr, 0, nullptr, "last words");
        std::exit(0);
    };
    EXPECT_EXIT(live_and_die(), testing::ExitedWithCode(0), "^$");
    const Calls calls = tests::syslog_calls(path_);
    ASSERT_EQ(calls.size(), 3U);
    EXPECT_EQ(calls[0][0], "openlog");
    EXPECT_EQ(calls[1][4], "last words");
    EXPECT_THAT(calls[2], ElementsAre("closelog"));
}

}  // namespace
