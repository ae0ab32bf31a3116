// Bars of levels and of counts.
#include "cli/bars.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using cli::Glyphs;

TEST(LevelBarTest, EachChannelHasASignFromBlankToFull) {
    const std::vector<unsigned char> levels{0, 1, 128, 254, 255};
    EXPECT_EQ(cli::level_bar(levels, 10, Glyphs::Ascii), " .=%#");
    EXPECT_EQ(cli::level_bar(levels, 10, Glyphs::Blocks), " ▁▄▇█");
}

TEST(LevelBarTest, NeighboursShareASignAndTheHighestShows) {
    EXPECT_EQ(cli::level_bar(std::vector<unsigned char>{0, 1, 128, 254, 255}, 2, Glyphs::Ascii), "=#");
    std::vector<unsigned char> levels(512, 0);
    levels[8] = 255;
    EXPECT_EQ(cli::level_bar(levels, 64, Glyphs::Ascii), " #" + std::string(62, ' '));
    EXPECT_EQ(cli::level_bar(levels, 63, Glyphs::Ascii).size(), 57U) << "nine channels a sign";
}

TEST(LevelBarTest, NoChannelsNoBar) {
    EXPECT_EQ(cli::level_bar({}, 10, Glyphs::Ascii), "");
}

TEST(HistogramBarTest, StepsAreBlankForNoneOnlyAndFullForTheMostOnly) {
    EXPECT_EQ(cli::histogram_bar(std::vector<std::uint64_t>{0, 1, 1000}, Glyphs::Ascii), " .#");
    EXPECT_EQ(cli::histogram_bar(std::vector<std::uint64_t>{0, 0}, Glyphs::Ascii), "  ");
    EXPECT_EQ(cli::histogram_bar({}, Glyphs::Ascii), "");
}

}  // namespace
