#include "generate_command.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli/failure.h"
#include "cli/progress.h"
#include "cli/value_text.h"
#include "generator.h"
#include "output_recording.h"
#include "written_summary.h"

namespace recording {

namespace {

constexpr std::uint32_t kLastUniverse = 32767;

constexpr const char* kFooter =
    R"(Patterns:
  chase   one bright channel with a fading tail wanders through the channels, a channel a frame
  ramp    every channel rises by one level a frame; neighbours are one level apart
  sine    a wave of two seconds wanders through the channels
  strobe  all channels full for an eighth of a second, off for the next
  random  every channel of every frame at random; the same for the same --seed
  still   one look, every channel at a level of its own

The frames of a rate that is no whole number of nanoseconds (or milliseconds) differ by one, so that the rate holds.
However the file is timed, playback lets the last frame stand 30 ms.

Examples:
  cuewright-recording generate chase.rec
      ten seconds of universe 0 at 40 frames a second
  cuewright-recording generate --pattern sine --universes 0-3,10 --fps 30 --seconds 60 sine.rec
      a minute of five universes
  cuewright-recording generate --pattern random --seed 7 --timing ms --force noise.rec
      with millisecond timing, in place of a file that may be there
)";

/// In the order of Pattern.
const std::vector<std::string> kPatterns{"chase", "ramp", "sine", "strobe", "random", "still"};

struct GenerateOptions {
    std::string out;
    std::string pattern = kPatterns.front();
    std::string universes = "0";
    std::string timing = "ns";
    Generation generation;
    bool force = false;
    bool json = false;
};

int generate(const GenerateOptions& options) {
    Generation generation = options.generation;
    if (!std::isfinite(generation.fps) || !std::isfinite(generation.seconds)) {
        throw cli::UsageError("--fps and --seconds: expected numbers");
    }
    generation.pattern =
        static_cast<Pattern>(std::ranges::find(kPatterns, options.pattern) - kPatterns.begin());
    generation.timing = options.timing == "ms" ? TimingUnit::Milliseconds : TimingUnit::Nanoseconds;
    for (const std::uint32_t universe :
         cli::numbers_of("--universes", cli::parse_ranges("--universes", options.universes, kLastUniverse))) {
        generation.universes.push_back(static_cast<std::uint16_t>(universe));
    }
    OutputRecording out(options.out, options.force);
    cli::Progress progress(options.out, frame_count(generation));
    WrittenSummary summary;
    summary.duration =
        generate_recording(generation, out.writer(), [&](std::uint64_t frames) { progress.update(frames); });
    out.commit();
    progress.clear();
    summary.path = options.out;
    summary.is_special = out.is_special();
    summary.bytes = out.writer().size();
    summary.frames = frame_count(generation);
    summary.universes.insert(generation.universes.begin(), generation.universes.end());
    summary.packets = *summary.frames * generation.universes.size();
    print_written(summary, Counting::Frames, options.json);
    return cli::kExitGood;
}

}  // namespace

void add_generate_command(CLI::App& program, std::function<int()>& chosen) {
    const auto options = std::make_shared<GenerateOptions>();
    Generation& generation = options->generation;
    CLI::App* const command = program.add_subcommand("generate", "Write a recording of a test pattern");
    command->footer(kFooter);
    command->add_option("OUT", options->out, "Recording to write")->required()->type_name("");
    command->add_option("--pattern", options->pattern, "Test pattern (default chase)")
        ->check(CLI::IsMember(kPatterns))
        ->type_name("NAME");
    command->add_option("--universes", options->universes, "Numbers and ranges, such as 0-3,7 (default 0)")
        ->type_name("LIST");
    command->add_option("--channels", generation.channels, "Channels of each universe (default 512)")
        ->check(CLI::Range(1, 512))
        ->type_name("N");
    command->add_option("--fps", generation.fps, "Frames a second (default 40)")
        ->check(CLI::Range(0.01, 1000.0))
        ->type_name("RATE");
    command->add_option("--seconds", generation.seconds, "Length in seconds, at least one frame (default 10)")
        ->check(CLI::Range(0.0, 1e6))
        ->type_name("TIME");
    command->add_option("--timing", options->timing, "Unit of the timing packets (default ns)")
        ->check(CLI::IsMember({"ns", "ms"}))
        ->type_name("UNIT");
    command->add_option("--seed", generation.seed, "Where random begins (default 1)")->type_name("N");
    command->add_flag("--force", options->force, "Replace OUT if it is there");
    command->add_flag("--json", options->json, "Print what has been written as JSON");
    command->callback([options, &chosen] { chosen = [options] { return generate(*options); }; });
}

}  // namespace recording
