#include "ondra/logger.h"

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <syslog.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QMetaMethod>
#include <QtDebug>

#include "support/syslog_records.h"

namespace {

using ondra::Logger;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::SyslogLine;

/// Logs to the stand-in with the settings of a new logger, but for the output.
class LoggerTest : public testing::Test {
protected:
    LoggerTest() {
        std::setlocale(LC_ALL, "C.UTF-8");
        setenv(tests::kSyslogFileVariable, path_.c_str(), 1);
        logger_->setOutput(Logger::Syslog);
        logger_->setLevel(3);
        logger_->useContext(true);
        std::remove(path_.c_str());
    }
    ~LoggerTest() override { std::remove(path_.c_str()); }

    [[nodiscard]] std::vector<SyslogLine> lines() const { return tests::syslog_lines(path_); }

    /// The texts of all recorded lines.
    [[nodiscard]] std::vector<std::string> texts() const {
        std::vector<std::string> result;
        for (const SyslogLine& line : lines()) {
            result.push_back(line.text);
        }
        return result;
    }

    const std::string path_ = testing::TempDir() + "logger_test." + std::to_string(getpid());
    Logger* const logger_ = Logger::instance();
};

/// What precedes every source path of this build tree.
std::string source_prefix() {
    const std::string_view own = __FILE__;
    return std::string(own.substr(0, own.rfind("tests/core/libs/ondra/logger_test.cpp")));
}

std::string last_two(const std::string& text) {
    return text.substr(text.size() - std::min<std::size_t>(2, text.size()));
}

TEST_F(LoggerTest, MessageAtTheLevelIsWrittenAndOneAboveIsNot) {
    for (const int level : {-2, 1, 3, 6}) {
        logger_->setLevel(level);
        logger_->log(level, nullptr, 0, nullptr, "at");
        logger_->log(level + 1, nullptr, 0, nullptr, "above");
        EXPECT_TRUE(logger_->accepts(level));
        EXPECT_FALSE(logger_->accepts(level + 1));
    }
    EXPECT_THAT(texts(), ElementsAre("0 ) at", "at", "at", "at"));
}

TEST_F(LoggerTest, DefaultLevelWritesUpToNormalOperation) {
    for (const int level : {-2, -1, 0, 1, 2, 3, 4, 5, 6}) {
        logger_->log(level, nullptr, 0, nullptr, "%d", level);
    }
    EXPECT_THAT(texts(), ElementsAre("0 ) -2", "0 ) -1", "0", "1", "2", "3"));
}

TEST_F(LoggerTest, PrioritiesAreErrorWarningAndInformationOfTheLocalFacility) {
    logger_->setLevel(6);
    for (const int level : {-3, -2, -1, 0, 1, 3, 6}) {
        logger_->log(level, nullptr, 0, nullptr, "x");
    }
    std::vector<int> priorities;
    for (const SyslogLine& line : lines()) {
        priorities.push_back(line.priority);
        EXPECT_EQ(line.facility, LOG_LOCAL0);
    }
    EXPECT_THAT(priorities, ElementsAre(6, 3, 4, 6, 6, 6, 6));
}

TEST_F(LoggerTest, ErrorLineBeginsWithPathLineAndFunction) {
    const std::string path = source_prefix() + "core/a.cpp";
    logger_->log(-2, path.c_str(), 12, "void A::f(int)", "failed (id:%d, name:%s)", 5, "five");
    EXPECT_THAT(texts(), ElementsAre("core/a.cpp12 void A::f(int)) failed (id:5, name:five)"));
}

TEST_F(LoggerTest, WarningLineShowsTwoMoreCharactersOfThePath) {
    const std::string path = source_prefix() + "core/a.cpp";
    logger_->log(-1, path.c_str(), 12, "f", "odd");
    EXPECT_THAT(texts(), ElementsAre(last_two(source_prefix()) + "core/a.cpp12 f) odd"));
}

TEST_F(LoggerTest, MacroGivesTheCallersPlace) {
    const int line = __LINE__ + 1;
    ONDRA_LOG(ondra::kError, "failed %d", 1);
    EXPECT_THAT(texts(), ElementsAre(testing::StartsWith("tests/core/libs/ondra/logger_test.cpp" +
                                                         std::to_string(line) + " virtual void ")));
    EXPECT_THAT(texts().front(), testing::EndsWith("TestBody()) failed 1"));
}

TEST_F(LoggerTest, MacroEvaluatesArgumentsOnlyForAWrittenLine) {
    int evaluated = 0;
    ONDRA_LOG(ondra::kDetail, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    ONDRA_LOG(ondra::kNormal, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 1);
}

TEST_F(LoggerTest, PathShorterThanThePrefixAndAbsentContextAreEmpty) {
    logger_->log(-2, "a", 3, "f", "x");
    logger_->log(-2, nullptr, 0, nullptr, "x");
    logger_->log(-1, nullptr, 0, nullptr, "x");
    const std::string clipped = source_prefix().empty() ? "a3 f) x" : "3 f) x";
    EXPECT_THAT(texts(), ElementsAre(clipped, "0 ) x", "0 ) x"));
}

TEST_F(LoggerTest, WithoutContextErrorLinesAreBare) {
    logger_->useContext(false);
    logger_->log(-2, __FILE__, __LINE__, "f", "failed");
    logger_->log(-1, __FILE__, __LINE__, "f", "odd");
    EXPECT_THAT(texts(), ElementsAre("failed", "odd"));
}

TEST_F(LoggerTest, InformationLinesNeverCarryContext) {
    logger_->setLevel(6);
    for (const int level : {-3, 0, 1, 3, 6}) {
        logger_->log(level, __FILE__, __LINE__, "f", "bare");
    }
    EXPECT_THAT(texts(), ElementsAre("bare", "bare", "bare", "bare", "bare"));
}

TEST_F(LoggerTest, OutputNoneAndUnknownOutputsDiscardEvenErrors) {
    testing::internal::CaptureStderr();
    for (const int output : {0, 3, -1}) {
        logger_->setOutput(static_cast<Logger::Output>(output));
        logger_->log(-2, nullptr, 0, nullptr, "lost");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LoggerTest, LevelMinusThreeSilencesErrors) {
    logger_->setLevel(-3);
    logger_->log(-2, nullptr, 0, nullptr, "lost");
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LoggerTest, ConsoleLinesGoToStandardErrorWithALineFeed) {
    logger_->setOutput(Logger::Console);
    testing::internal::CaptureStderr();
    logger_->log(3, nullptr, 0, nullptr, "50%% of %s", "%d");
    logger_->log(-2, nullptr, 0, nullptr, "failed");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "50% of %d\n0 ) failed\n");
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LoggerTest, WriteHandsAFinishedLineToEachOutput) {
    logger_->write(-1, "to the system log");
    logger_->writeToSyslog(3, "directly");
    logger_->writeToNone(-2, "lost");
    EXPECT_THAT(texts(), ElementsAre("to the system log", "directly"));
    testing::internal::CaptureStderr();
    logger_->writeToConsole(3, "directly");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "directly\n");
}

TEST_F(LoggerTest, NullTextsAreEmptyLines) {
    logger_->write(3, nullptr);
    logger_->writeToSyslog(3, nullptr);
    const char* const none = nullptr;
    logger_->log(-2, nullptr, 0, nullptr, none);
    EXPECT_THAT(texts(), ElementsAre("", "", "0 ) "));
    testing::internal::CaptureStderr();
    logger_->writeToConsole(3, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\n");
}

TEST_F(LoggerTest, LineIsTheSystemLogsFormatAndInterpretedOnceMore) {
    logger_->log(3, nullptr, 0, nullptr, "brightness 100%s", "%%");
    ASSERT_EQ(lines().size(), 1U);
    EXPECT_EQ(lines()[0].format, "brightness 100%%");
    EXPECT_EQ(lines()[0].text, "brightness 100%");
}

TEST_F(LoggerTest, ErrorTextConversionShowsTheErrorAtTheCall) {
    errno = EACCES;
    logger_->log(3, nullptr, 0, nullptr, "open: %s", "%m");
    ASSERT_EQ(lines().size(), 1U);
    EXPECT_EQ(lines()[0].format, "open: %m");
    EXPECT_EQ(lines()[0].text, "open: Permission denied");
}

TEST_F(LoggerTest, ConversionsThatWouldFetchArgumentsAppearAsTheyStand) {
    logger_->log(3, nullptr, 0, nullptr, "Loading: %s", "a%n b%s c%d %*m 5%");
    EXPECT_THAT(texts(), ElementsAre("Loading: a%n b%s c%d %*m 5%"));
}

TEST_F(LoggerTest, MessageIsAsLongAsItsArgumentsMakeIt) {
    const std::string text(1'000'000, 'x');
    logger_->log(3, nullptr, 0, nullptr, "<%s>", text.c_str());
    EXPECT_THAT(texts(), ElementsAre("<" + text + ">"));
}

TEST_F(LoggerTest, MessageThatCannotBeFormattedIsDropped) {
    const wchar_t no_character[] = {static_cast<wchar_t>(0xD800), 0};
    logger_->log(-2, nullptr, 0, nullptr, "before %ls", no_character);
    logger_->log(3, nullptr, 0, nullptr, "after");
    EXPECT_THAT(texts(), ElementsAre("after"));
}

TEST_F(LoggerTest, QtMessagesAreWrittenAtTheirLevels) {
    const QMessageLogContext none;
    Logger::MessageHandler(QtDebugMsg, none, QStringLiteral("debug"));
    Logger::MessageHandler(QtWarningMsg, none, QStringLiteral("warning"));
    Logger::MessageHandler(QtCriticalMsg, none, QStringLiteral("critical"));
    Logger::MessageHandler(QtFatalMsg, none, QStringLiteral("fatal"));
    EXPECT_THAT(texts(), ElementsAre("debug", "0 ) warning", "0 ) critical", "0 ) fatal"));
    EXPECT_EQ(lines()[0].priority, LOG_INFO);
    EXPECT_EQ(lines()[1].priority, LOG_WARNING);
    EXPECT_EQ(lines()[2].priority, LOG_ERR);
    EXPECT_EQ(lines()[3].priority, LOG_ERR);
}

TEST_F(LoggerTest, QtDebugMessagesNeedLevelOne) {
    logger_->setLevel(0);
    Logger::MessageHandler(QtDebugMsg, QMessageLogContext(), QStringLiteral("lost"));
    logger_->setLevel(1);
    Logger::MessageHandler(QtDebugMsg, QMessageLogContext(), QStringLiteral("kept"));
    EXPECT_THAT(texts(), ElementsAre("kept"));
}

TEST_F(LoggerTest, QtContextIsThatOfTheMessage) {
    const std::string path = source_prefix() + "core/q.cpp";
    const QMessageLogContext context(path.c_str(), 9, "void q()", "default");
    Logger::MessageHandler(QtCriticalMsg, context, QStringLiteral("odd"));
    EXPECT_THAT(texts(), ElementsAre("core/q.cpp9 void q()) odd"));
}

TEST_F(LoggerTest, HandlerIsInstalledInQt) {
    logger_->useContext(false);
    qWarning("from Qt");
    qCritical("also");
    EXPECT_THAT(texts(), ElementsAre("from Qt", "also"));
}

TEST_F(LoggerTest, QtMessageIsAFormatTooAndCannotFetchArguments) {
    logger_->useContext(false);
    errno = ENOENT;
    Logger::MessageHandler(QtWarningMsg, QMessageLogContext(), QStringLiteral("a%n %s 50%% %m"));
    ASSERT_EQ(lines().size(), 1U);
    EXPECT_EQ(lines()[0].format, "a%%n %%s 50%% No such file or directory");
    EXPECT_EQ(lines()[0].text, "a%n %s 50% No such file or directory");
}

TEST_F(LoggerTest, QtMessageIsInTheLocalEncoding) {
    Logger::MessageHandler(QtDebugMsg, QMessageLogContext(), QString::fromUtf8("Bühne"));
    EXPECT_THAT(texts(), ElementsAre("Bühne"));
}

TEST_F(LoggerTest, SettingsAreInvokableSlots) {
    const QMetaObject& meta = Logger::staticMetaObject;
    EXPECT_STREQ(meta.className(), "ondra::Logger");
    std::vector<std::string> slot_names;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        EXPECT_EQ(method.methodType(), QMetaMethod::Slot);
        EXPECT_EQ(method.access(), QMetaMethod::Public);
        slot_names.push_back(method.methodSignature().toStdString() + " " + method.typeName());
    }
    EXPECT_THAT(slot_names, testing::UnorderedElementsAre("setOutput(Output) void", "setLevel(int) void",
                                                          "getLevel() int", "useContext(bool) void"));
    ASSERT_TRUE(QMetaObject::invokeMethod(logger_, "setLevel", Q_ARG(int, 99)));
    int level = 0;
    ASSERT_TRUE(QMetaObject::invokeMethod(logger_, "getLevel", Q_RETURN_ARG(int, level)));
    EXPECT_EQ(level, 99);
}

TEST_F(LoggerTest, OutputHasNoTypeThatTheBusCouldCarry) {
    EXPECT_EQ(QMetaType::type("Output"), 0);
    EXPECT_EQ(QMetaType::type("ondra::Logger::Output"), 0);
}

TEST_F(LoggerTest, LinesOfSeveralThreadsAreWholeWhileSettingsChange) {
    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this] {
            for (int i = 0; i < kLines; ++i) {
                logger_->log(3, nullptr, 0, nullptr, "%s", "whole line");
            }
        });
    }
    for (int i = 0; i < kLines; ++i) {
        logger_->setLevel(3 + i % 3);
        logger_->useContext(i % 2 == 0);
        logger_->setOutput(Logger::Syslog);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(texts(), std::vector<std::string>(kThreads * kLines, "whole line"));
}

using LoggerDeathTest = LoggerTest;

TEST_F(LoggerDeathTest, QtInformationMessageTerminatesTheProcessUnwritten) {
    EXPECT_DEATH(qInfo("never shown"), "terminate called without an active exception");
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LoggerDeathTest, UnknownQtMessageTypeTerminatesTheProcess) {
    const auto unknown = static_cast<QtMsgType>(7);
    EXPECT_DEATH(Logger::MessageHandler(unknown, QMessageLogContext(), QString()), "terminate called");
}

TEST_F(LoggerDeathTest, InformationMessageTerminatesAlsoWhileAnExceptionIsHandled) {
    const auto inform_while_handling = [] {
        try {
            try {
                throw std::runtime_error("in flight");
            } catch (const std::runtime_error&) {
                qInfo("never shown");
            }
        } catch (...) {
            _exit(0);
        }
    };
    EXPECT_DEATH(inform_while_handling(), "terminate called after throwing");
}

}  // namespace
