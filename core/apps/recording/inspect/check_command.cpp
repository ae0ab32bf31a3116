#include "inspect/check_command.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/program.h"
#include "cli/progress.h"
#include "inspect/inspection.h"
#include "inspect/report_output.h"

namespace inspect {

namespace {

struct CheckOptions {
    std::vector<std::string> files;
    InspectOptions inspect;
    bool no_loop = false;
    bool json = false;
    bool strict = false;
    std::string level = "note";
};

/// Inspects one file with progress on a terminal.
RecordingReport inspect_with_progress(const std::string& file, const InspectOptions& options) {
    // The loader's progress has no known end, the walk's has.
    cli::Progress loading(file + ": packets loaded", 0);
    std::unique_ptr<cli::Progress> walking;
    return inspect_recording(file, options, [&](std::uint64_t done, std::uint64_t total) {
        if (total == 0) {
            loading.update(done);
            return;
        }
        if (!walking) {
            loading.clear();
            walking = std::make_unique<cli::Progress>(file, total);
        }
        walking->update(done);
    });
}

int check(const CheckOptions& options) {
    silence_service_log();
    const Level lowest = level_of_name(options.level);
    InspectOptions inspect = options.inspect;
    inspect.loops = !options.no_loop;
    std::uint64_t errors = 0;
    std::uint64_t warnings = 0;
    std::uint64_t notes = 0;
    nlohmann::ordered_json reports = nlohmann::ordered_json::array();
    for (const std::string& file : options.files) {
        const RecordingReport report = inspect_with_progress(file, inspect);
        errors += report.findings.count(Level::Error);
        warnings += report.findings.count(Level::Warning);
        notes += report.findings.count(Level::Note);
        if (options.json) {
            reports.push_back(report_json(report, lowest));
        } else {
            print_report(stdout, report, lowest);
        }
    }
    if (options.json) {
        const nlohmann::ordered_json answer{
            {"errors", errors}, {"warnings", warnings}, {"notes", notes}, {"files", reports}};
        // File names need not be UTF-8.
        std::printf("%s\n",
                    answer.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
    }
    return errors != 0 || (options.strict && warnings != 0) ? cli::kExitProblem : cli::kExitGood;
}

}  // namespace

void add_check_command(CLI::App& program, std::function<int()>& chosen) {
    const auto options = std::make_shared<CheckOptions>();
    CLI::App* const command = program.add_subcommand(
        "check",
        "Say what is wrong with recordings, with the player's own parser and loader; nothing is sent");
    command->add_option("FILE", options->files, "Recordings")->required();
    CLI::Option* const fps =
        command->add_option("--fps", options->inspect.fps, "Check as an effect with this fixed frame rate");
    command->add_option("--ppf", options->inspect.ppf, "Packets per frame, with --fps")->needs(fps);
    command->add_flag("--no-loop", options->no_loop,
                      "Do not look at the seam from the last frame to the first");
    command->add_option("--level", options->level, "Lowest level shown: error, warning or note")
        ->check(CLI::IsMember({"error", "warning", "note"}))
        ->capture_default_str();
    command->add_option("--limit", options->inspect.per_kind, "Findings shown of one kind; 0: all")
        ->capture_default_str();
    command->add_flag("--strict", options->strict, "Warnings count as errors in the exit status");
    command->add_flag("--json", options->json, "Print one JSON object");
    command->footer(
        "Exit status: 0 no errors; 1 errors were found (with --strict: or warnings); 2 wrong command line.\n"
        "Examples:\n"
        "  cuewright-recording check show.rec\n"
        "  cuewright-recording check --strict --level warning recordings/*.rec   # for CI\n"
        "  cuewright-recording check --fps 25 untimed.rec\n"
        "  cuewright-recording check --json show.rec | jq '.files[].findings[].kind'");
    command->callback([options, &chosen] { chosen = [options] { return check(*options); }; });
}

}  // namespace inspect
