// What --watch prints.
#include "watch_view.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using cli::Glyphs;
using forwarder::WatchRow;
using testing::HasSubstr;
using testing::Not;

WatchRow example_row() {
    return {3, {0xC0000201, 6454}, 40.04, 25.001, 25.5, 26.126, 1234, {255, 128, 1, 0}};
}

TEST(WatchViewTest, PlainLineHasRateIntervalsAndLevels) {
    EXPECT_EQ(
        forwarder::to_plain_line(example_row()),
        "universe 3 to 192.0.2.1:6454: 40.0 fps, interval p50 25.00 p99 25.50 max 26.13 ms, 1234 frames, "
        "levels 255 128 1 0\n");
}

TEST(WatchViewTest, PlainLineShowsTheFirstSixteenLevels) {
    WatchRow row = example_row();
    row.levels.assign(17, 9);
    EXPECT_THAT(forwarder::to_plain_line(row), HasSubstr("levels 9 9 9 9 9 9 9 9 9 9 9 9 9 9 9 9 ...\n"));
}

TEST(WatchViewTest, JsonHasEverythingInOneLine) {
    const std::vector<WatchRow> rows{example_row()};
    EXPECT_EQ(forwarder::to_json(rows),
              R"({"type":"watch","universes":[{"universe":3,"address":"192.0.2.1","port":6454,"fps":40.040,)"
              R"("p50_ms":25.001,"p99_ms":25.500,"max_ms":26.126,"frames":1234,"levels":[255,128,1,0]}]})"
              "\n");
}

TEST(WatchViewTest, ScreenHasALinePerUniverse) {
    const std::string screen = forwarder::to_screen("heading", {{example_row()}}, 0, {80, 24}, Glyphs::Ascii);
    EXPECT_EQ(screen,
              "heading\n"
              "universe  destination              fps   p50 ms   p99 ms   max ms  levels\n"
              "       3  192.0.2.1:6454          40.0    25.00    25.50    26.13  #=. \n");
}

TEST(WatchViewTest, LinesAreCutToTheWidth) {
    const std::string screen =
        forwarder::to_screen(std::string(100, 'h'), {{example_row()}}, 5, {40, 24}, Glyphs::Ascii);
    for (std::size_t begin = 0; begin < screen.size();) {
        const std::size_t end = screen.find('\n', begin);
        EXPECT_LE(end - begin, 40U);
        begin = end + 1;
    }
}

TEST(WatchViewTest, WhatDoesNotFitIsCounted) {
    const std::vector<WatchRow> rows(10, example_row());
    const std::string screen = forwarder::to_screen("heading", rows, 7, {80, 10}, Glyphs::Ascii);
    EXPECT_EQ(std::ranges::count(screen, '\n'), 9);
    EXPECT_THAT(screen, HasSubstr("4 more universes below, 7 frames of universes that are not followed"));
}

TEST(WatchViewTest, EmptyScreenSaysSo) {
    EXPECT_THAT(forwarder::to_screen("heading", {}, 0, {80, 24}, Glyphs::Ascii),
                HasSubstr("no universe seen yet"));
}

}  // namespace
