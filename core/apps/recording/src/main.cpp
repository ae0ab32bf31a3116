// cuewright-recording: makes, inspects and edits recordings of Art-Net.

#include <clocale>
#include <functional>

#include <CLI/CLI.hpp>

#include "cli/program.h"
#include "cut_command.h"
#include "dump_command.h"
#include "generate_command.h"
#include "info_command.h"
#include "inspect/check_command.h"
#include "merge_command.h"
#include "plot/plot_command.h"
#include "record_command.h"
#include "remap_command.h"

namespace {

constexpr const char* kDescription =
    "Makes, inspects and edits recordings of Art-Net, as the playback service plays them.";

constexpr const char* kFooter =
    R"(Each command has a help of its own: cuewright-recording COMMAND --help

Examples:
  cuewright-recording record --until-idle 5s show.rec
      what comes to port 6454, until nothing has come for five seconds
  cuewright-recording check show.rec
      whether it plays as its author means it

Exit status:
  0  done
  1  it could not be done, or a check found something
  2  the command line is wrong
)";

}  // namespace

int main(int argc, char** argv) {
    // The player reads file names as its unit sets them; so does what loads recordings with its loader.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    CLI::App app{kDescription, "cuewright-recording"};
    app.footer(kFooter);
    app.require_subcommand(1);
    std::function<int()> chosen;
    // In the order of the help. Each sets `chosen` when it is the command that was given.
    recording::add_record_command(app, chosen);
    recording::add_generate_command(app, chosen);
    recording::add_info_command(app, chosen);
    recording::add_dump_command(app, chosen);
    recording::add_cut_command(app, chosen);
    recording::add_merge_command(app, chosen);
    recording::add_remap_command(app, chosen);
    inspect::add_check_command(app, chosen);
    plot::add_plot_command(app, chosen);
    return cli::run(app, argc, argv, [&chosen] { return chosen(); });
}
