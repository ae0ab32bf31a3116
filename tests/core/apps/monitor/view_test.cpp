// What is shown: screen, lines, JSON, report and picture.
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "cli/failure.h"
#include "lateness_plot.h"
#include "monitor_view.h"

using namespace std::chrono_literals;

namespace {

using cli::Glyphs;
using monitor::Snapshot;
using monitor::StreamRow;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

StreamRow row(std::uint16_t universe) {
    StreamRow result;
    result.universe = universe;
    result.peer = {0x0A000005, 6454};
    result.intervals.fps = 40.04;
    result.intervals.p50 = 25;
    result.intervals.p99 = 26.5;
    result.intervals.max = 31.25;
    result.intervals.worst = 99;
    result.intervals.histogram[8] = 200;
    result.intervals.histogram[9] = 1;
    result.packets = 1234;
    result.sequence.add(1);
    result.sequence.add(4);
    result.sequence.add(4);
    result.levels = {0, 1, 128, 255};
    return result;
}

TEST(MonitorViewTest, TheScreenHasALinePerStreamWithAllItsFigures) {
    std::vector<StreamRow> rows{row(1), row(300)};
    rows[1].conflict = true;
    monitor::ComparisonCounts counts;
    counts.matched = 77;
    const std::string screen =
        monitor::to_screen({rows, {.malformed = 3}, 5, false, &counts}, {120, 24}, Glyphs::Ascii);
    EXPECT_THAT(screen, StartsWith("2 streams  malformed 3  no Art-Net 0  dropped by kernel 5  compared 77"));
    EXPECT_THAT(screen, HasSubstr("\nuniverse  source "));
    const std::string blanks(8, ' ');
    EXPECT_THAT(screen, HasSubstr("\n       1  10.0.0.5:6454" + blanks + "   40.0  25.00  26.50   31.25 " +
                                  blanks + "#.   " + "       2      0      1   .=#\n"));
    EXPECT_THAT(screen, HasSubstr("\n     300! 10.0.0.5:6454"));
}

TEST(MonitorViewTest, TheDocumentsShowTheHeadingsThatItPrints) {
    const std::vector<StreamRow> rows{row(1)};
    const std::string screen = monitor::to_screen({rows, {}, 0, false, nullptr}, {200, 24}, Glyphs::Ascii);
    const std::size_t begin = screen.find("\nuniverse");
    ASSERT_NE(begin, std::string::npos);
    const std::string heading = screen.substr(begin, screen.find('\n', begin + 1) + 1 - begin);
    for (const char* const document : {"/README.md", "/docs/monitor.md"}) {
        std::ifstream file(std::string(SOURCE_DIRECTORY) + document);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        EXPECT_THAT(text, HasSubstr(heading)) << document;
    }
}

TEST(MonitorViewTest, LinesStayWithinTheTerminalAndWhatDoesNotFitIsCounted) {
    std::vector<StreamRow> rows;
    for (std::uint16_t universe = 0; universe < 30; ++universe) {
        rows.push_back(row(universe));
    }
    for (const std::size_t columns : {std::size_t{20}, std::size_t{70}, std::size_t{80}, std::size_t{200}}) {
        const std::string screen =
            monitor::to_screen({rows, {}, 0, false, nullptr}, {columns, 12}, Glyphs::Ascii);
        std::size_t lines = 0;
        std::size_t begin = 0;
        for (std::size_t end = screen.find('\n'); end != std::string::npos; end = screen.find('\n', begin)) {
            EXPECT_LE(end - begin, columns);
            begin = end + 1;
            ++lines;
        }
        EXPECT_LT(lines, 12U);
    }
    EXPECT_THAT(monitor::to_screen({rows, {}, 0, false, nullptr}, {80, 12}, Glyphs::Ascii),
                HasSubstr("23 more streams below"));
    EXPECT_THAT(monitor::to_screen({{}, {}, 0, true, nullptr}, {80, 12}, Glyphs::Ascii),
                AllOf(HasSubstr("no ArtDmx seen yet"), HasSubstr("destination")));
}

TEST(MonitorViewTest, LinesNameTheSenderOrTheDestination) {
    std::vector<StreamRow> rows{row(1)};
    EXPECT_EQ(
        monitor::to_lines({rows, {}, 0, false, nullptr}),
        "universe 1 from 10.0.0.5:6454: 40.0 fps, interval p50 25.00 p99 26.50 max 31.25 worst 99.00 ms, "
        "1234 packets, lost 2 late 0 repeated 1, levels 0 1 128 255\n");
    rows[0].conflict = true;
    EXPECT_THAT(monitor::to_lines({rows, {}, 0, false, nullptr}), HasSubstr(", TWO SENDERS, levels"));
    EXPECT_THAT(monitor::to_lines({rows, {}, 0, true, nullptr}), HasSubstr("universe 1 to 10.0.0.5:6454"));
}

TEST(MonitorViewTest, JsonHoldsEverythingForPrograms) {
    const std::vector<StreamRow> rows{row(1)};
    const std::string line = monitor::to_json({rows, {.not_artnet = 2}, 5, false, nullptr});
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    const auto json = nlohmann::json::parse(line);
    EXPECT_EQ(json["type"], "monitor");
    EXPECT_EQ(json["not_artnet"], 2);
    EXPECT_EQ(json["kernel_drops"], 5);
    const auto& stream = json["streams"][0];
    EXPECT_EQ(stream["source"], "10.0.0.5:6454");
    EXPECT_EQ(stream["interval_ms"]["histogram"][8]["to_ms"], 26);
    EXPECT_EQ(stream["interval_ms"]["histogram"][8]["count"], 200);
    EXPECT_TRUE(stream["interval_ms"]["histogram"][12]["to_ms"].is_null());
    EXPECT_EQ(stream["levels"][3], 255);
    EXPECT_FALSE(json.contains("compared"));
}

monitor::ComparisonReport report() {
    monitor::ComparisonReport result;
    result.recording = "/shows/a.rec";
    result.speed_boost = 50;
    result.counts = {1000, 2, 3, 4, 0};
    result.lateness = {-1us, 20us, 300us, 4ms, 5ms};
    return result;
}

TEST(ComparisonReportTest, TextAndJsonSayTheSame) {
    EXPECT_EQ(monitor::report_text(report()),
              "/shows/a.rec: 1000 packets compared at a speed boost of 50, 2 missing, 3 extra, 4 of other "
              "universes "
              "or streams\n"
              "lateness in ms, of which the first packet has none: p50 0.020, p99 0.300, p99.9 4.000, max "
              "5.000, min "
              "-0.001\n");
    const auto json = nlohmann::json::parse(monitor::report_json(report()));
    EXPECT_EQ(json["compared"], 1000);
    EXPECT_EQ(json["missing"], 2);
    EXPECT_EQ(json["lateness_ns"]["p99_9"], 4000000);
    EXPECT_EQ(json["lateness_ns"]["min"], -1000);
}

TEST(LatenessPlotTest, TheFormatIsTheFileNames) {
    EXPECT_EQ(monitor::plot_format_of("a.svg"), monitor::PlotFormat::Svg);
    EXPECT_EQ(monitor::plot_format_of("a.png"), monitor::PlotFormat::Png);
    EXPECT_THROW(static_cast<void>(monitor::plot_format_of("a.jpg")), cli::UsageError);
}

TEST(LatenessPlotTest, PicturesAreDrawnOfAnySamples) {
    std::vector<std::chrono::nanoseconds> spread;
    for (int i = 0; i < 5000; ++i) {
        spread.push_back(i * i * 1ns);
    }
    const std::string svg = monitor::draw_lateness(report(), spread, monitor::PlotFormat::Svg);
    EXPECT_THAT(svg, AllOf(HasSubstr("<svg"), HasSubstr("</svg>")));
    EXPECT_NE(svg, monitor::draw_lateness(report(), std::span(spread).first(10), monitor::PlotFormat::Svg));
    EXPECT_THAT(monitor::draw_lateness(report(), spread, monitor::PlotFormat::Png), StartsWith("\x89PNG"));
    const std::vector<std::chrono::nanoseconds> one(1, 0ns);
    EXPECT_THAT(monitor::draw_lateness(report(), one, monitor::PlotFormat::Svg), HasSubstr("</svg>"));
    EXPECT_THAT(svg, Not(HasSubstr("nan")));
}

}  // namespace
