#include "merge_command.h"

#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli/failure.h"
#include "edited_output.h"

namespace recording {

namespace {

constexpr const char* kFooter =
    R"(Every packet keeps the time at which it plays in its own recording, to the nanosecond; all begin together. Two
recordings that hold the same universe are refused: "remap" renumbers one of them first.

Examples:
  cuewright-recording merge show.rec front.rec back.rec movers.rec
)";

struct MergeOptions {
    std::string out;
    std::vector<std::string> in;
    bool force = false;
    bool json = false;
};

int merge(const MergeOptions& options) {
    std::vector<RecordingIndex> sources;
    for (const std::string& file : options.in) {
        sources.push_back(index_recording(file, CutShort::Refuse));
    }
    print_written(write_edited(merge_recordings(sources), sources, options.out, options.force),
                  Counting::Packets, options.json);
    return cli::kExitGood;
}

}  // namespace

void add_merge_command(CLI::App& program, std::function<int()>& chosen) {
    const auto options = std::make_shared<MergeOptions>();
    CLI::App* const command =
        program.add_subcommand("merge", "Put recordings of different universes into one, by time");
    command->footer(kFooter);
    command->add_option("OUT", options->out, "Recording to write")->required()->type_name("");
    command->add_option("IN", options->in, "Recordings to read")->required()->type_name("");
    command->add_flag("--force", options->force, "Replace OUT if it is there");
    command->add_flag("--json", options->json, "Print what has been written as JSON");
    command->callback([options, &chosen] { chosen = [options] { return merge(*options); }; });
}

}  // namespace recording
