#include "info_command.h"

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli/failure.h"
#include "info_report.h"

namespace recording {

namespace {

constexpr const char* kFooter =
    R"(Times are those of playback with the recording's own timing ("fps" -1), where the last frame stands 30 ms
whatever its timing packet says. p50 and p99: half of the intervals, or 99 of 100, are no longer.
With --json, an array with one object a file.

Examples:
  cuewright-recording info show.rec
  cuewright-recording info --speed-boost 50 show.rec
      also how long it plays at a speed boost of 50
  cuewright-recording info --json *.rec
)";

struct InfoOptions {
    std::vector<std::string> files;
    std::optional<int> speed_boost;
    bool json = false;
};

/// A file that cannot be read does not keep the others from being shown.
int info(const InfoOptions& options) {
    int status = cli::kExitGood;
    std::string separator = options.json ? "[\n" : "";
    for (const std::string& file : options.files) {
        try {
            InfoReport report{file, options.speed_boost, statistics_of(file, options.speed_boost)};
            const std::string text = options.json ? info_json(report) : info_text(report);
            std::fputs((std::exchange(separator, options.json ? ",\n" : "\n") + text).c_str(), stdout);
        } catch (const cli::Failure& failure) {
            std::fflush(stdout);
            std::fprintf(stderr, "cuewright-recording: %s\n", failure.what());
            status = failure.status();
        }
    }
    if (options.json) {
        std::fputs(separator == ",\n" ? "\n]\n" : "[]\n", stdout);
    }
    return status;
}

}  // namespace

void add_info_command(CLI::App& program, std::function<int()>& chosen) {
    const auto options = std::make_shared<InfoOptions>();
    CLI::App* const command =
        program.add_subcommand("info", "Tell what recordings hold and how long they play");
    command->footer(kFooter);
    command->add_option("FILE", options->files, "Recordings")->required()->type_name("");
    command->add_option("--speed-boost", options->speed_boost, "Also the duration at this speed boost")
        ->check(CLI::Range(-100, 100))
        ->type_name("PERCENT");
    command->add_flag("--json", options->json, "Print JSON");
    command->callback([options, &chosen] { chosen = [options] { return info(*options); }; });
}

}  // namespace recording
