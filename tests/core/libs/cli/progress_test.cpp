// A progress bar is for terminals, for work that takes longer than a second, and goes away.
#include "cli/progress.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/terminal.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using tests::Terminal;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;
using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

constexpr const char* kEraseLine = "\r\x1b[K";

class ProgressTest : public testing::Test {
protected:
    void SetUp() override {
        if (terminal_.name().empty()) {
            GTEST_SKIP() << "no pseudo-terminals here";
        }
        screen_.reset(std::fopen(terminal_.name().c_str(), "we"));
        ASSERT_TRUE(screen_);
    }

    /// Updates, and collects what is shown, until something is or a minute is over.
    template <typename Update>
    void until_shown(const Update& update) {
        const Clock::time_point end = Clock::now() + Terminal::kDeadline;
        while (terminal_.text().empty() && Clock::now() < end) {
            update();
            terminal_.collect();
        }
    }

    Terminal terminal_{100, 30};
    File screen_{nullptr, &std::fclose};
};

TEST_F(ProgressTest, ABarIsShownAfterASecondAndNeverEarlierAndIsTakenAway) {
    const Clock::time_point begin = Clock::now();
    {
        cli::Progress progress("show.rec", 200, screen_.get());
        until_shown([&] { progress.update(50); });
        EXPECT_GE(Clock::now() - begin, 1s);
        EXPECT_TRUE(terminal_.read_until_text(" 25 %")) << terminal_.text();
        EXPECT_THAT(terminal_.text(), HasSubstr("show.rec  [##########.............................."));
    }
    EXPECT_TRUE(terminal_.read_until([](const std::string& text) { return text.ends_with(kEraseLine); }))
        << terminal_.text();
}

TEST_F(ProgressTest, MoreThanEverythingIsEverything) {
    cli::Progress progress("show.rec", 10, screen_.get());
    until_shown([&] { progress.update(11); });
    EXPECT_TRUE(terminal_.read_until_text("########################################] 100 %"))
        << terminal_.text();
}

TEST_F(ProgressTest, OfWorkWithoutAKnownEndWhatIsDoneIsShownAndNothingElsewhereThanOnATerminal) {
    const File file(std::tmpfile(), &std::fclose);
    ASSERT_TRUE(file);
    cli::Progress elsewhere("show.rec", 10, file.get());
    cli::Progress progress("packets", 0, screen_.get());
    until_shown([&] {
        elsewhere.update(5);
        progress.update(1234);
    });
    EXPECT_TRUE(terminal_.read_until_text("packets  1234")) << terminal_.text();
    // As old as the other.
    elsewhere.update(6);
    elsewhere.clear();
    EXPECT_EQ(std::ftell(file.get()), 0);
}

TEST_F(ProgressTest, WorkThatEndsBeforeItIsShownLeavesNoTrace) {
    const Clock::time_point begin = Clock::now();
    {
        cli::Progress progress("show.rec", 10, screen_.get());
        progress.update(10);
        progress.clear();
    }
    if (Clock::now() - begin >= 1s) {
        GTEST_SKIP() << "this machine stood still for a second";
    }
    // What comes next is the first that comes.
    std::fputs("next", screen_.get());
    std::fflush(screen_.get());
    ASSERT_TRUE(terminal_.read_until_text("next"));
    EXPECT_EQ(terminal_.text(), "next");
}

}  // namespace
