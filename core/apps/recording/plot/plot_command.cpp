#include "plot/plot_command.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

#include "cli/program.h"
#include "cli/progress.h"
#include "cli/value_text.h"
#include "inspect/inspection.h"
#include "inspect/timeline.h"
#include "inspect/wording.h"
#include "plot/level_map.h"
#include "plot/picture.h"
#include "posix/new_file.h"
#include "src/existing_file.h"

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
    bool force = false;
    bool json = false;
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

PictureKind kind_of(const std::string& path) {
    if (path.ends_with(".png")) {
        return PictureKind::Png;
    }
    if (path.ends_with(".svg")) {
        return PictureKind::Svg;
    }
    throw cli::UsageError(path + ": the picture's name must end in .png or .svg");
}

Picture draw(const PlotOptions& options, PictureKind kind, const LevelMap& map, const Section& section,
             const Caption& caption) {
    std::unique_ptr<cli::Progress> drawing;
    try {
        return draw_picture(kind, map, section, caption, options.width,
                            [&](std::uint64_t done, std::uint64_t parts) {
                                if (!drawing) {
                                    drawing = std::make_unique<cli::Progress>(options.out, parts);
                                }
                                drawing->update(done);
                            });
    } catch (const std::runtime_error& error) {
        throw cli::Failure(options.out + ": " + error.what());
    }
}

void print_result(const PlotOptions& options, const LevelMap& map, const Section& section,
                  const Caption& caption, const Picture& picture) {
    if (!options.json) {
        std::printf("%s: %d x %d pixels, %s\n", options.out.c_str(), options.width, picture.height,
                    caption.subtitle.c_str());
        return;
    }
    nlohmann::ordered_json universes = nlohmann::ordered_json::array();
    for (const UniverseMap& universe : map.universes) {
        universes.push_back(universe.universe);
    }
    const nlohmann::ordered_json answer{
        {"file", options.file},
        {"picture", options.out},
        {"bytes", picture.bytes.size()},
        {"width", options.width},
        {"height", picture.height},
        {"universes", universes},
        {"frames", map.frames},
        {"from_ns", section.from.count()},
        {"to_ns", section.to.count()},
        {"intervals",
         {{"p50_ns", map.median.count()}, {"p99_ns", map.p99.count()}, {"max_ns", map.longest.count()}}}};
    // File names need not be UTF-8.
    std::printf("%s\n",
                answer.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
}

int plot(const PlotOptions& options) {
    const PictureKind kind = kind_of(options.out);
    std::uint64_t bytes = 0;
    if (const std::string reason = inspect::why_unreadable(options.file, bytes); !reason.empty()) {
        throw cli::Failure(options.file + ": " + reason);
    }
    // Found out before the work whether it may be there.
    auto file = recording::naming_force([&] {
        return posix::NewFile(
            options.out, options.force ? posix::NewFile::Existing::Replace : posix::NewFile::Existing::Keep);
    });
    inspect::silence_service_log();
    cli::Progress loading(options.file + ": packets loaded", 0);
    inspect::Timeline timeline(options.file, options.fps, options.ppf,
                               [&](int packets) { loading.update(static_cast<std::uint64_t>(packets)); });
    loading.clear();
    if (timeline.packets() == 0) {
        throw cli::Failure(
            options.file +
            ": the player finds no ArtDmx packet in it; \"cuewright-recording check\" says why");
    }
    const Section section = make_section(options, timeline);
    cli::Progress reducing(options.file, timeline.packets());
    const LevelMap map = reduce(timeline, section, [&](std::uint64_t packets) { reducing.update(packets); });
    reducing.clear();
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
    const Picture picture = draw(options, kind, map, section, caption);
    file.stream().write(picture.bytes.data(), static_cast<std::streamsize>(picture.bytes.size()));
    recording::naming_force([&] { file.commit(); });
    print_result(options, map, section, caption, picture);
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
    CLI::Option* const fps =
        command->add_option("--fps", options->fps, "Play as an effect with this fixed frame rate");
    command->add_option("--ppf", options->ppf, "Packets per frame, with --fps")->needs(fps);
    command->add_flag("--force", options->force, "Replace OUT if it is there");
    command->add_flag("--json", options->json, "Print what has been drawn as JSON");
    command->footer(
        "Exit status: 0 drawn; 1 not; 2 wrong command line.\n"
        "Examples:\n"
        "  cuewright-recording plot show.rec show.png\n"
        "  cuewright-recording plot --universe 0-3 --from 1m --to 1m10s --width 2000 show.rec detail.svg");
    command->callback([options, &chosen] { chosen = [options] { return plot(*options); }; });
}

}  // namespace plot
