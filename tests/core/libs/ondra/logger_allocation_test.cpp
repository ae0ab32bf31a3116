// A message whose memory cannot be had: the failure passes on to the caller, and the logger goes on.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ondra/logger.h"
#include "support/syslog_records.h"

namespace {

/// Larger requests fail. The test has one thread.
std::size_t largest_request = std::numeric_limits<std::size_t>::max();

}  // namespace

void* operator new(std::size_t size) {
    if (size <= largest_request) {
        if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
            return memory;
        }
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace {

using ondra::Logger;
using testing::ElementsAre;

class LoggerAllocationTest : public testing::Test {
protected:
    LoggerAllocationTest() {
        setenv(tests::kSyslogFileVariable, path_.c_str(), 1);
        logger_->setOutput(Logger::Syslog);
    }
    ~LoggerAllocationTest() override { std::remove(path_.c_str()); }

    [[nodiscard]] std::vector<std::string> texts() const {
        std::vector<std::string> result;
        for (const tests::SyslogLine& line : tests::syslog_lines(path_)) {
            result.push_back(line.text);
        }
        return result;
    }

    const std::string path_ = testing::TempDir() + "logger_allocation_test." + std::to_string(getpid());
    Logger* const logger_ = Logger::instance();
};

TEST_F(LoggerAllocationTest, AMessageWithoutMemoryThrowsWritesNothingAndTheNextIsWritten) {
    const std::string text(100'000, 'x');
    largest_request = 50'000;
    EXPECT_THROW(logger_->log(3, nullptr, 0, nullptr, "<%s>", text.c_str()), std::bad_alloc);
    logger_->log(3, nullptr, 0, nullptr, "next");
    largest_request = std::numeric_limits<std::size_t>::max();
    EXPECT_THAT(texts(), ElementsAre("next"));
}

TEST_F(LoggerAllocationTest, AFilteredMessageAsksForNoMemory) {
    largest_request = 0;
    EXPECT_NO_THROW(logger_->log(4, nullptr, 0, nullptr, "filtered %d", 1));
    largest_request = std::numeric_limits<std::size_t>::max();
    EXPECT_THAT(texts(), testing::IsEmpty());
}

}  // namespace
