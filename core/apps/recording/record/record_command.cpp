#include "record_command.h"

#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "capture/source_options.h"
#include "cli/failure.h"
#include "cli/progress.h"
#include "cli/value_text.h"
#include "posix/stop_signals.h"
#include "record_summary.h"
#include "recorder.h"
#include "recording_file.h"

namespace recording {

namespace {

constexpr const char* kProgram = "cuewright-recording";
constexpr std::uint32_t kLastUniverse = 65535;

constexpr const char* kFooter =
    R"(Frames end with the sender's ArtSync where there is one, otherwise before a universe repeats and wherever two packets
are further apart than --frame-gap. Behind each frame goes a timing packet, so that playback keeps the times at which
the kernel received its first packet. Whenever the writing ends, what is on disk plays; the last frame stands 30 ms.

Examples:
  cuewright-recording record show.rec
      all that comes to port 6454, until Ctrl-C
  cuewright-recording record --interface eth0 --universe 0-3,7 --source 10.0.0.5 --duration 1m30s show.rec
      five universes of one sender for a minute and a half
  cuewright-recording record --until-idle 5s --json show.rec
      until nothing has come for five seconds, with a summary for programs
  cuewright-recording record --packet-socket lo --wrapped show.rec
      what the service hands to its forwarder; of a universe with several destinations, the copy for one
)";

struct RecordOptions {
    std::string out;
    capture::SourceOptions source;
    std::string universes;
    std::string frame_gap = "5ms";
    std::string timing = "ns";
    capture::LimitOptions limits;
    std::string sync_period = "0";
    bool force = false;
    bool json = false;
};

RecordPlan plan_of(const RecordOptions& options) {
    RecordPlan plan;
    plan.payload = options.source.payload();
    plan.sender = options.source.filter();
    plan.one_destination = options.source.wrapped && options.source.sender.empty();
    if (options.universes.empty()) {
        plan.universes.set();
    } else {
        for (const cli::NumberRange& range :
             cli::parse_ranges("--universe", options.universes, kLastUniverse)) {
            for (std::uint32_t universe = range.first; universe <= range.last; ++universe) {
                plan.universes.set(universe);
            }
        }
    }
    plan.frame_gap = cli::parse_time("--frame-gap", options.frame_gap);
    plan.timing = options.timing == "ms" ? FrameTiming::Milliseconds : FrameTiming::Nanoseconds;
    plan.limits = options.limits.limits();
    return plan;
}

int record(const RecordOptions& options) {
    const RecordPlan plan = plan_of(options);
    const std::chrono::nanoseconds sync_period = cli::parse_time("--sync", options.sync_period);
    // Before the writer's thread, which is to leave the signals to this one.
    posix::StopSignals signals;
    RecordingFile file(options.out, options.force);
    const std::unique_ptr<capture::Source> source = capture::open_source(options.source, kProgram);
    FrameWriter writer(file, sync_period);
    // With an end that is known, how much of the time is over; otherwise the frames.
    const bool ends = plan.limits.duration.has_value();
    cli::Progress progress(ends ? "recording (Ctrl-C ends)" : "recording (Ctrl-C ends), frames",
                           ends ? static_cast<std::uint64_t>(plan.limits.duration->count()) : 0);
    const auto begin = std::chrono::steady_clock::now();
    Recorder recorder(
        plan, *source, writer, signals,
        [&](const capture::SenderConflict& conflict) {
            progress.clear();
            std::fprintf(stderr, "%s: %s; --source picks one\n", kProgram,
                         conflict_text(conflict, plan.payload).c_str());
        },
        [&](std::uint64_t frames) {
            const std::chrono::nanoseconds passed = std::chrono::steady_clock::now() - begin;
            progress.update(ends ? static_cast<std::uint64_t>(passed.count()) : frames);
        });
    std::string failure;
    // Whatever goes wrong, what came before it is written, and told of.
    const auto attempt = [&failure](const auto& step) {
        try {
            step();
        } catch (const std::exception& error) {
            failure = failure.empty() ? error.what() : failure;
        }
    };
    attempt([&] { recorder.run(); });
    progress.clear();
    attempt([&] { recorder.finish(); });
    attempt([&] { writer.finish(); });
    const RecordSummary summary{options.out,
                                file.size(),
                                writer.written().frames,
                                writer.written().duration,
                                source->kernel_drops(),
                                recorder.statistics(),
                                plan.payload};
    std::fputs((options.json ? summary_json(summary) : summary_text(summary)).c_str(), stdout);
    if (failure.empty() && recorder.statistics().frames() == 0) {
        failure =
            options.out + ": not written, since no ArtDmx that was asked for came to " + source->place();
    }
    if (!failure.empty()) {
        throw cli::Failure(failure);
    }
    return cli::kExitGood;
}

}  // namespace

void add_record_command(CLI::App& program, std::function<int()>& chosen) {
    const auto options = std::make_shared<RecordOptions>();
    CLI::App* const command = program.add_subcommand("record", "Capture live Art-Net");
    command->footer(kFooter);
    command->add_option("OUT", options->out, "Recording to write")->required();
    capture::add_source_options(*command, options->source);
    command
        ->add_option("--universe", options->universes,
                     "Record these universes only: numbers and ranges, such as 0-3,7")
        ->type_name("LIST");
    command
        ->add_option("--frame-gap", options->frame_gap,
                     "Longest time between two packets of a frame (default 5ms)")
        ->type_name("TIME");
    command->add_option("--timing", options->timing, "Unit of the timing packets (default ns)")
        ->check(CLI::IsMember({"ns", "ms"}))
        ->type_name("UNIT");
    capture::add_limit_options(*command, options->limits,
                               "End when nothing to record has come for this time, once something has");
    command
        ->add_option("--sync", options->sync_period,
                     "Bring data to the disk this often at most (default 0: with every frame)")
        ->type_name("TIME");
    command->add_flag("--force", options->force, "Replace OUT if it is there");
    command->add_flag("--json", options->json, "Print the summary as JSON");
    command->callback([options, &chosen] { chosen = [options] { return record(*options); }; });
}

}  // namespace recording
