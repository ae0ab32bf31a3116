#include "program.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <dirent.h>

#include "cli/program.h"
#include "cli/progress.h"
#include "data_finding.h"
#include "inspect/inspection.h"
#include "inspect/report_output.h"
#include "output.h"
#include "show_check.h"
#include "side_files.h"

namespace datacheck {

namespace {

constexpr const char* kDescription =
    "Says what is wrong with a data directory of the player: what it would reject, skip or replace by a "
    "default, "
    "and what it accepts though nobody means it. Nothing is sent.";

constexpr const char* kFooter =
    R"(Each finding has a level: an error is not played as it is written, a warning is, though
hardly meant, a note is good to know.

Exit status:
  0  no errors
  1  errors were found (with --strict: or warnings), or the check could not be done
  2  the command line is wrong

Examples:
  cuewright-check data
  cuewright-check --strict --level warning data       # for CI
  cuewright-check --zones zones.json --nodes nodes.json data
  cuewright-netsurvey --list --json > nodes.json      # the nodes that are there now
  cuewright-check --json data | jq '.findings[].kind'
)";

struct Options {
    std::string directory;
    std::string zones;
    std::string nodes;
    std::string level = "note";
    std::size_t per_kind = 10;
    bool strict = false;
    bool json = false;
};

void require_directory(const std::string& path) {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
    if (directory == nullptr) {
        throw cli::Failure(path + ": " + std::strerror(errno) + " (expected the player's data directory)");
    }
}

int check(const Options& options) {
    require_directory(options.directory);
    ShowOptions show;
    show.per_kind = options.per_kind;
    if (!options.zones.empty()) {
        show.zones = read_zones(options.zones);
        show.side_files.push_back(options.zones);
    }
    if (!options.nodes.empty()) {
        show.node_universes = read_nodes(options.nodes);
        show.side_files.push_back(options.nodes);
    }
    inspect::silence_service_log();
    DataFindings findings;
    std::string shown;
    bool shown_total = false;
    std::unique_ptr<cli::Progress> progress;
    const ShowSummary summary =
        ShowCheck(options.directory, show, findings)
            .run([&](const std::string& recording, std::uint64_t done, std::uint64_t total) {
                // A bar for each recording: packets while it loads, whose number is not known, then bytes.
                if (progress == nullptr || recording != shown || shown_total != (total != 0)) {
                    shown = recording;
                    shown_total = total != 0;
                    progress.reset();
                    progress = std::make_unique<cli::Progress>(
                        shown_total ? recording : recording + ": packets loaded", total);
                }
                progress->update(done);
            });
    progress.reset();
    const Level lowest = inspect::level_of_name(options.level);
    if (options.json) {
        std::fputs(findings_json(options.directory, findings, summary, lowest).c_str(), stdout);
    } else {
        print_findings(stdout, options.directory, findings, summary, lowest);
    }
    const bool bad =
        findings.count(Level::Error) != 0 || (options.strict && findings.count(Level::Warning) != 0);
    return bad ? cli::kExitProblem : cli::kExitGood;
}

}  // namespace

int run_program(int argc, const char* const* argv) {
    CLI::App app{kDescription, "cuewright-check"};
    app.footer(kFooter);
    Options options;
    app.add_option("DATA_DIR", options.directory, "Data directory, with playlists/playlists.json in it")
        ->required();
    app.add_option(
        "--zones", options.zones,
        "Zones that control software sets, as \"cuewrightctl zones\" takes them; names of others are "
        "errors");
    app.add_option(
        "--nodes", options.nodes,
        "Nodes of the network: static nodes or the list of cuewright-netsurvey (JSON), or its records "
        "(1:universe:ip:port)");
    app.add_option("--level", options.level, "Lowest level shown: error, warning or note")
        ->check(CLI::IsMember({"error", "warning", "note"}))
        ->capture_default_str();
    app.add_option("--limit", options.per_kind, "Findings shown of one kind in one recording; 0: all")
        ->capture_default_str();
    app.add_flag("--strict", options.strict, "Warnings count as errors in the exit status");
    app.add_flag("--json", options.json, "Print one JSON object");
    return cli::run(app, argc, argv, [&options] { return check(options); });
}

}  // namespace datacheck
