#include "remap_command.h"

#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli/failure.h"
#include "edited_output.h"

namespace recording {

namespace {

constexpr const char* kFooter =
    R"(Universes that no rule names stay as they are. Rules apply at once: "0=1 1=0" exchanges two universes.

Examples:
  cuewright-recording remap show.rec moved.rec 0-3=10-13 7=20
)";

struct RemapOptions {
    std::string in;
    std::string out;
    std::vector<std::string> rules;
    bool force = false;
    bool json = false;
};

int remap(const RemapOptions& options) {
    std::vector<Renumbering> rules;
    for (const std::string& rule : options.rules) {
        rules.push_back(parse_renumbering(rule));
    }
    const std::vector<RecordingIndex> sources{index_recording(options.in, CutShort::Refuse)};
    print_written(write_edited(remap_recording(sources.front(), rules), sources, options.out, options.force),
                  Counting::Packets, options.json);
    return cli::kExitGood;
}

}  // namespace

void add_remap_command(CLI::App& program, std::function<int()>& chosen) {
    const auto options = std::make_shared<RemapOptions>();
    CLI::App* const command = program.add_subcommand("remap", "Renumber the universes of a recording");
    command->footer(kFooter);
    command->add_option("IN", options->in, "Recording to read")->required()->type_name("");
    command->add_option("OUT", options->out, "Recording to write")->required()->type_name("");
    command->add_option("FROM=TO", options->rules, "Universes, or ranges of one length")
        ->required()
        ->type_name("");
    command->add_flag("--force", options->force, "Replace OUT if it is there");
    command->add_flag("--json", options->json, "Print what has been written as JSON");
    command->callback([options, &chosen] { chosen = [options] { return remap(*options); }; });
}

}  // namespace recording
