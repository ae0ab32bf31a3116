#include "screen.h"

#include <array>

#include <gtest/gtest.h>

#include "summary.h"

using namespace demo;

TEST(ScreenTest, BarsShowDarknessAsNothingAndFullAsFull) {
    const std::array<std::uint8_t, 4> levels{0, 1, 128, 255};
    EXPECT_EQ(bars(levels, true), " ▁▄█");
    EXPECT_EQ(bars(levels, false), " .=@");
}

TEST(SummaryTest, FactsThatDifferAreNamedAndDisagree) {
    Summary summary;
    summary.add_fact("play playlist 1", "true", "true");
    EXPECT_TRUE(summary.agrees());
    summary.add_fact("OnPlaylistStopped(3) arrives", "1", "0");
    EXPECT_FALSE(summary.agrees());
    EXPECT_NE(summary.text().find("OnPlaylistStopped(3) arrives: expected 1, got 0"), std::string::npos);
    EXPECT_NE(summary.text().find("What came out is NOT what was expected."), std::string::npos);
}

TEST(SummaryTest, WhatIsOnlyShownIsNotJudged) {
    Summary summary;
    summary.add_shown("lateness: a week\n");
    EXPECT_TRUE(summary.agrees());
    EXPECT_NE(summary.text().find("\nlateness: a week\n\nAll that came out is what was expected."),
              std::string::npos)
        << summary.text();
}

TEST(SummaryTest, AStepThatShowsNothingDisagreesInPacketsRateAndPeak) {
    const StepExpectation step{.name = "play",
                               .label = "the chase",
                               .streams = {expected_stream({kChase, 120, {kStageOutput}}, {kChase})},
                               .destinations = {kStageOutput}};
    LineBook book;
    Summary summary;
    summary.add(step, StepJudge(step, book, 1));
    EXPECT_FALSE(summary.agrees());
    const std::string text = summary.text();
    EXPECT_NE(text.find("the chase, playlist 1: expected 480 packets, 0 came"), std::string::npos) << text;
    EXPECT_NE(text.find("expected 39.96 frames a second, measured 0.00"), std::string::npos) << text;
    EXPECT_NE(text.find("the highest level should be 255 and is 0"), std::string::npos) << text;
}

TEST(SummaryTest, AStepThatCannotBeMadeIsNoFailure) {
    Summary summary;
    summary.add_skipped("broadcast", "this run does not use port 6454");
    EXPECT_TRUE(summary.agrees());
    EXPECT_NE(summary.text().find("broadcast: left out, this run does not use port 6454"), std::string::npos);
}
