#include "cut_command.h"

#include <chrono>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "cli/failure.h"
#include "cli/value_text.h"
#include "edited_output.h"

namespace recording {

namespace {

constexpr const char* kFooter =
    R"(Times: seconds ("90", "1.5"), or numbers with the units h, m, s, ms, us, ns ("1m30s"), from the recording's begin.
The new recording begins with the look that stands at --from: the last packet of each universe up to then. What comes
later keeps its time to the nanosecond, less --from. Packets that begin at --to or later are left out.
A recording that ends within a packet, which playback would refuse, is cut, too, without that packet.

Examples:
  cuewright-recording cut --from 1m30s --to 2m show.rec part.rec
  cuewright-recording cut broken.rec mended.rec
      what can be saved of a file that was cut short
)";

struct CutOptions {
    std::string in;
    std::string out;
    std::string from = "0";
    std::string to;
    bool force = false;
    bool json = false;
};

int cut(const CutOptions& options) {
    const std::chrono::nanoseconds from = cli::parse_time("--from", options.from);
    const std::chrono::nanoseconds to =
        options.to.empty() ? std::chrono::nanoseconds::max() : cli::parse_time("--to", options.to);
    if (to <= from) {
        throw cli::UsageError("--to: expected a time after --from");
    }
    const std::vector<RecordingIndex> sources{index_recording(options.in, CutShort::Accept)};
    print_written(write_edited(cut_recording(sources.front(), from, to), sources, options.out, options.force),
                  Counting::Packets, options.json);
    return cli::kExitGood;
}

}  // namespace

void add_cut_command(CLI::App& program, std::function<int()>& chosen) {
    const auto options = std::make_shared<CutOptions>();
    CLI::App* const command = program.add_subcommand("cut", "Take a time range out of a recording");
    command->footer(kFooter);
    command->add_option("IN", options->in, "Recording to read")->required()->type_name("");
    command->add_option("OUT", options->out, "Recording to write")->required()->type_name("");
    command->add_option("--from", options->from, "Where to begin (default 0)")->type_name("TIME");
    command->add_option("--to", options->to, "Where to end (default: the end)")->type_name("TIME");
    command->add_flag("--force", options->force, "Replace OUT if it is there");
    command->add_flag("--json", options->json, "Print what has been written as JSON");
    command->callback([options, &chosen] { chosen = [options] { return cut(*options); }; });
}

}  // namespace recording
