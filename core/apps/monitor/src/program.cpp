#include "program.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include <CLI/CLI.hpp>

#include "capture/source_options.h"
#include "cli/failure.h"
#include "cli/program.h"
#include "cli/progress.h"
#include "comparison.h"
#include "comparison_report.h"
#include "lateness_plot.h"
#include "monitor_output.h"
#include "posix/new_file.h"
#include "posix/stop_signals.h"
#include "timeline.h"
#include "watch.h"

namespace monitor {

namespace {

constexpr const char* kProgram = "cuewright-monitor";

constexpr const char* kDescription =
    "Shows the Art-Net on the wire: of each sender's universes the frames per second, intervals, lost "
    "packets\n"
    "and levels, and how late they are against a recording.";

constexpr const char* kFooter =
    R"(In a terminal the view is live; elsewhere it is a line a stream, or with --json one object, every second.

Examples:
  cuewright-monitor
      what comes to port 6454 of this machine
  cuewright-monitor --wrapped --port 7000
      what a forwarder that runs with --tee 127.0.0.1:7000 is given
  cuewright-monitor --packet-socket lo --wrapped
      the same without --tee, as root
  cuewright-monitor --compare show.rec --until-idle 2s --plot lateness.svg
      how late each packet is against the recording's own timing
  cuewright-monitor --json --duration 10s
      ten objects for programs

Exit status:
  0  ended by a signal or a limit
  1  it could not be done, or nothing came that could be compared
  2  the command line is wrong
)";

struct MonitorOptions {
    capture::SourceOptions source;
    capture::LimitOptions limits;
    std::string recording;
    int speed_boost = 0;
    std::string plot;
    bool json = false;
};

void write_plot(const std::string& path, const std::string& picture) {
    posix::NewFile file(path, posix::NewFile::Existing::Replace);
    file.stream() << picture;
    file.commit();
}

Timeline read_with_progress(const std::string& path, int speed_boost) {
    std::error_code not_known;
    const std::uintmax_t size = std::filesystem::file_size(path, not_known);
    cli::Progress progress("reading " + path, not_known ? 0 : size);
    return read_timeline(path, speed_boost, [&progress](std::uint64_t bytes) { progress.update(bytes); });
}

int report_comparison(const MonitorOptions& options, const Comparison& comparison,
                      std::uint64_t kernel_drops) {
    if (comparison.counts().matched == 0) {
        throw cli::Failure(options.recording +
                           ": nothing came that could be compared; of its universes came " +
                           std::to_string(comparison.counts().extra) + " packets, but none with its levels");
    }
    const ComparisonReport report{options.recording, options.speed_boost, comparison.counts(),
                                  figures_of(comparison.lateness()), kernel_drops};
    std::fputs((options.json ? report_json(report) : report_text(report)).c_str(), stdout);
    if (!options.plot.empty()) {
        write_plot(options.plot, draw_lateness(report, comparison.lateness(), plot_format_of(options.plot)));
    }
    return cli::kExitGood;
}

int watch(const MonitorOptions& options) {
    if (!options.plot.empty()) {
        // Found out before the watching, not after it.
        static_cast<void>(plot_format_of(options.plot));
    }
    const WatchPlan plan{options.source.payload(), options.source.filter(), options.limits.limits()};
    posix::StopSignals signals;
    std::optional<Timeline> timeline;
    std::optional<Comparison> comparison;
    if (!options.recording.empty()) {
        timeline = read_with_progress(options.recording, options.speed_boost);
        comparison.emplace(*timeline);
    }
    const std::unique_ptr<capture::Source> source = capture::open_source(options.source, kProgram);
    {
        MonitorOutput output(options.json);
        Watch(plan, *source, output, signals, comparison ? &*comparison : nullptr).run();
    }
    return comparison ? report_comparison(options, *comparison, source->kernel_drops()) : cli::kExitGood;
}

}  // namespace

int run_program(int argc, const char* const* argv) {
    MonitorOptions options;
    CLI::App app{kDescription, kProgram};
    app.footer(kFooter);
    capture::add_source_options(app, options.source);
    capture::add_limit_options(app, options.limits,
                               "End when no ArtDmx has come for this time, once one has");
    app.add_flag("--json", options.json, "Print one JSON object a second");
    CLI::Option* const compare =
        app.add_option("--compare", options.recording,
                       "Measure how late packets are against the timing of this recording")
            ->type_name("RECORDING");
    app.add_option("--speed-boost", options.speed_boost,
                   "Speed boost that the playlist plays with, in percent (default 0)")
        ->type_name("PERCENT")
        ->needs(compare);
    app.add_option("--plot", options.plot,
                   "Draw the lateness as a histogram into this file, .svg or .png; replaces it")
        ->type_name("FILE")
        ->needs(compare);
    return cli::run(app, argc, argv, [&options] { return watch(options); });
}

}  // namespace monitor
