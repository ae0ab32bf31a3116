// What a companion program prints and ends with.
#include "cli/program.h"

#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cuewright/version.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

struct Ending {
    int status = -1;
    std::string output;
    std::string error;
    bool body_ran = false;
};

/// Runs a program with an option --number and a subcommand "sub".
Ending run(
    std::vector<const char*> words, const std::function<int()>& body = [] { return 0; }) {
    Ending ending;
    CLI::App app{"Does something.", "some-program"};
    app.footer("Exit status:\n  0  done\n");
    int number = 0;
    app.add_option("--number", number, "A number");
    app.add_subcommand("sub", "A part of it")->footer("Only of the part.");
    words.insert(words.begin(), "some-program");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ending.status = cli::run(app, static_cast<int>(words.size()), words.data(), [&] {
        ending.body_ran = true;
        return body();
    });
    ending.output = testing::internal::GetCapturedStdout();
    ending.error = testing::internal::GetCapturedStderr();
    return ending;
}

}  // namespace

TEST(ProgramTest, HelpGoesToTheOutput) {
    const Ending ending = run({"--help"});
    EXPECT_EQ(ending.status, 0);
    EXPECT_THAT(ending.output, HasSubstr("Does something."));
    EXPECT_THAT(ending.output, HasSubstr("--version"));
    EXPECT_THAT(ending.output, HasSubstr("Exit status:"));
    EXPECT_THAT(ending.error, IsEmpty());
    EXPECT_FALSE(ending.body_ran);
}

TEST(ProgramTest, ASubcommandHasItsOwnHelp) {
    const Ending ending = run({"sub", "--help"});
    EXPECT_EQ(ending.status, 0);
    EXPECT_THAT(ending.output, HasSubstr("some-program sub"));
    EXPECT_THAT(ending.output, HasSubstr("Only of the part."));
}

TEST(ProgramTest, VersionIsTheProjects) {
    const Ending ending = run({"--version"});
    EXPECT_EQ(ending.status, 0);
    EXPECT_EQ(ending.output, "some-program " CUEWRIGHT_VERSION "\n");
    EXPECT_FALSE(ending.body_ran);
}

TEST(ProgramTest, AWrongCommandLineIsStatusTwoWithTheReasonOnStandardError) {
    for (const std::vector<const char*>& words :
         {std::vector<const char*>{"--number", "x"}, {"--nonsense"}, {"--number"}, {"word"}}) {
        const Ending ending = run(words);
        EXPECT_EQ(ending.status, 2);
        EXPECT_THAT(ending.output, IsEmpty());
        EXPECT_THAT(ending.error, testing::StartsWith("some-program: "));
        EXPECT_THAT(ending.error, HasSubstr("Try \"some-program --help\" for more.\n"));
        EXPECT_FALSE(ending.body_ran);
    }
}

TEST(ProgramTest, TheBodysStatusIsTheProgramsAndItsOutputIsKept) {
    const Ending ending = run({"--number", "3"}, [] {
        std::fputs("result", stdout);
        return 5;
    });
    EXPECT_EQ(ending.status, 5);
    EXPECT_EQ(ending.output, "result");
    EXPECT_THAT(ending.error, IsEmpty());
}

TEST(ProgramTest, WhatTheBodyThrowsIsToldAndDecidesTheStatus) {
    const Ending failure = run({}, []() -> int { throw cli::Failure("a.rec: is gone"); });
    EXPECT_EQ(failure.status, 1);
    EXPECT_EQ(failure.error, "some-program: a.rec: is gone\n");
    EXPECT_EQ(run({}, []() -> int { throw cli::Failure("own", 4); }).status, 4);
    const Ending usage = run({}, []() -> int { throw cli::UsageError("--number: too large"); });
    EXPECT_EQ(usage.status, 2);
    EXPECT_EQ(usage.error, "some-program: --number: too large\nTry \"some-program --help\" for more.\n");
    const Ending other = run({}, []() -> int { throw std::runtime_error("surprise"); });
    EXPECT_EQ(other.status, 1);
    EXPECT_EQ(other.error, "some-program: surprise\n");
}
