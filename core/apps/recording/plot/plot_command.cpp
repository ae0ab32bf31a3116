#include "plot/plot_command.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>

#include "cli/program.h"
#include "cli/progress.h"
#include "cli/value_text.h"
#include "inspect/inspection.h"
#include "inspect/timeline.h"
#include "inspect/wording.h"
#include "plot/level_map.h"
#include "plot/picture.h"

namespace plot {

namespace {

constexpr int kDefaultWidth = 1200;
constexpr std::uint32_t kHighestUniverse = 65535;

struct PlotOptions {
    std::string file;
    std::string out;
    std::string universes;
    std::string from;
    std::string to;
    int width = kDefaultWidth;
    int fps = -1;
    int ppf = -1;
};

Section make_section(const PlotOptions& options, const inspect::Timeline& timeline) {
    Section section{.to = timeline.duration(), .columns = level_columns(options.width), .universes = {}};
    if (!options.from.empty()) {
        section.from = cli::parse_time("--from", options.from);
    }
    if (!options.to.empty()) {
        section.to = std::min(section.to, cli::parse_time("--to", options.to));
    }
    if (section.from >= section.to) {
        throw cli::Failure(options.file + ": nothing from " + inspect::time_text(section.from) +
                           " on: the recording is " + inspect::time_text(timeline.duration()) +
                           " long and the section ends at " + inspect::time_text(section.to));
    }
    if (!options.universes.empty()) {
        for (const std::uint32_t universe : cli::numbers_of(
                 "--universe", cli::parse_ranges("--universe", options.universes, kHighestUniverse))) {
            section.universes.insert(static_cast<int>(universe));
        }
    }
    return section;
}

int plot(const PlotOptions& options) {
    if (!options.out.ends_with(".png") && !options.out.ends_with(".svg")) {
        throw cli::UsageError(options.out + ": the picture's name must end in .png or .svg");
    }
    if (!std::filesystem::is_regular_file(options.file)) {
        throw cli::Failure(options.file + ": no such file, or no regular one");
    }
    inspect::silence_service_log();
    cli::Progress progress(options.file + ": packets loaded", 0);
    inspect::Timeline timeline(options.file, options.fps, options.ppf,
                               [&](int packets) { progress.update(static_cast<std::uint64_t>(packets)); });
    progress.clear();
    if (timeline.packets() == 0) {
        throw cli::Failure(
            options.file +
            ": the player finds no ArtDmx packet in it; \"cuewright-recording check\" says why");
    }
    const Section section = make_section(options, timeline);
    const LevelMap map = reduce(timeline, section);
    if (map.universes.empty()) {
        throw cli::Failure(options.file + ": none of these universes has a packet in this section");
    }
    const Caption caption{std::filesystem::path(options.file).filename().string(),
                          inspect::counted(map.universes.size(), "universe") + ", " +
                              inspect::counted(map.frames, "frame") + ", " +
                              inspect::time_text(section.to - section.from) +
                              (section.from.count() != 0 || section.to != timeline.duration()
                                   ? " of " + inspect::time_text(timeline.duration())
                                   : "")};
    draw_picture(options.out, map, section, caption, options.width);
    return cli::kExitGood;
}

}  // namespace

void add_plot_command(CLI::App& program, std::function<int()>& chosen) {
    const auto options = std::make_shared<PlotOptions>();
    CLI::App* const command = program.add_subcommand(
        "plot", "Draw a recording: frame intervals, and each universe's levels over time");
    command->add_option("FILE", options->file, "Recording")->required();
    command->add_option("OUT", options->out, "Picture to write: NAME.png or NAME.svg")->required();
    command->add_option("--universe", options->universes, "Only these universes, for example 0-3,7");
    command->add_option("--from", options->from, "Begin here, for example 90 or 1m30s");
    command->add_option("--to", options->to, "End here");
    command->add_option("--width", options->width, "Width in pixels")
        ->check(CLI::Range(kLeastWidth, kMostWidth))
        ->capture_default_str();
    command->add_option("--fps", options->fps, "Play as an effect with this fixed frame rate");
    command->add_option("--ppf", options->ppf, "Packets per frame, with --fps");
    command->footer(
        "Exit status: 0 drawn; 1 not; 2 wrong command line.\n"
        "Examples:\n"
        "  cuewright-recording plot show.rec show.png\n"
        "  cuewright-recording plot --universe 0-3 --from 1m --to 1m10s --width 2000 show.rec detail.svg");
    command->callback([options, &chosen] { chosen = [options] { return plot(*options); }; });
}

}  // namespace plot
