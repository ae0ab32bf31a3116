#include "dump_command.h"

#include <cstdio>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "cli/failure.h"
#include "dump.h"

namespace recording {

namespace {

constexpr const char* kFooter =
    R"(A line holds the packet's offset in the file, its index, the time at which it plays in seconds, its type and
what it says. "passed_over": playback does not use it. "repeated": found again behind the end of the file, in what
an incomplete last block leaves of the block before; the offset lies beyond the end then.
With --json, one object a line.

Examples:
  cuewright-recording dump show.rec | less
  cuewright-recording dump --json show.rec | jq 'select(.type == "timing-ns").nanoseconds'
)";

struct DumpCommandOptions {
    std::string file;
    DumpOptions dump;
};

}  // namespace

void add_dump_command(CLI::App& program, std::function<int()>& chosen) {
    const auto options = std::make_shared<DumpCommandOptions>();
    CLI::App* const command = program.add_subcommand("dump", "Print a recording packet by packet");
    command->footer(kFooter);
    command->add_option("FILE", options->file, "Recording")->required()->type_name("");
    command->add_flag("--json", options->dump.json, "Print JSON");
    command->add_flag("--levels", options->dump.levels, "With the channel levels");
    command->callback([options, &chosen] {
        chosen = [options] {
            dump_recording(options->file, options->dump, stdout);
            return cli::kExitGood;
        };
    });
}

}  // namespace recording
