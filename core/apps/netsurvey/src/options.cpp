#include "options.h"

#include <cmath>

#include "posix/ipv4.h"

namespace netsurvey {

namespace {

constexpr const char* kFooter =
    R"(Examples:
  cuewright-netsurvey
      look for nodes on all interfaces and tell the player of them
  cuewright-netsurvey --interface eth0 --static nodes.json
      on one interface, and add the devices in a file, which answer no polls
  cuewright-netsurvey --list
      show the nodes that the running discovery knows; without one, look for some seconds
  cuewright-netsurvey --list --json
      the same as a JSON array

Signals:
  SIGINT, SIGTERM   end with status 0; the player keeps its nodes

Exit status:
  0  ended by a signal; or the list has been shown, even an empty one
  1  the system or a file refused something that the program needs
  2  the command line is wrong
  3  another discovery has the name com.torvexserver.Netsurvey
)";

std::chrono::milliseconds milliseconds(double seconds) {
    return std::chrono::milliseconds(std::llround(seconds * 1000.0));
}

double seconds(std::chrono::milliseconds time) {
    return static_cast<double>(time.count()) / 1000.0;
}

}  // namespace

OptionReader::OptionReader(CLI::App& app)
    : interval_(seconds(options_.survey.interval)),
      expiry_(seconds(options_.survey.expiry)),
      wait_(seconds(options_.wait)) {
    app.footer(kFooter);
    app.add_option("--interface", options_.survey.interfaces,
                   "Network interface to poll on; repeatable (default: all that can broadcast)")
        ->allow_extra_args(false)
        ->type_name("NAME");
    app.add_option("--target", targets_,
                   "Address to poll instead of the interfaces' broadcast addresses; repeatable")
        ->allow_extra_args(false)
        ->type_name("ADDRESS");
    app.add_option("--static", options_.static_file, "JSON file of nodes that answer no polls")
        ->type_name("FILE");
    app.add_option("--port", options_.survey.port, "Port that the nodes listen at (default 6454)")
        ->check(CLI::Range(1, 65535))
        ->type_name("PORT");
    app.add_option("--interval", interval_,
                   "Time between polls (default 2.75; the protocol asks for 2.5 to 3)")
        ->check(CLI::Range(0.05, 60.0))
        ->type_name("SECONDS");
    app.add_option("--expiry", expiry_, "Time after a node's last reply until it is gone (default 10)")
        ->check(CLI::Range(0.1, 3600.0))
        ->type_name("SECONDS");
    app.add_option(
           "--state", options_.state_file,
           "File that keeps the nodes for the next run (default: one in the user's runtime directory)")
        ->type_name("FILE");
    app.add_flag("--list", options_.list, "Show the nodes and end");
    app.add_flag("--json", options_.json, "With --list: as a JSON array");
    app.add_option("--wait", wait_, "With --list, when no discovery runs: how long to look (default 4)")
        ->check(CLI::Range(0.1, 600.0))
        ->type_name("SECONDS");
    app.add_flag("--verbose", options_.verbose, "Print each message to the player on standard error");
}

Options OptionReader::finish() {
    for (const std::string& text : targets_) {
        const std::optional<std::uint32_t> address = posix::parse_ipv4(text);
        if (!address) {
            throw cli::UsageError("--target " + text + ": expected an IPv4 address");
        }
        options_.survey.targets.push_back(*address);
    }
    if (!targets_.empty() && !options_.survey.interfaces.empty()) {
        throw cli::UsageError("--interface and --target exclude each other");
    }
    if (options_.json && !options_.list) {
        throw cli::UsageError("--json goes with --list");
    }
    options_.survey.interval = milliseconds(interval_);
    options_.survey.expiry = milliseconds(expiry_);
    options_.wait = milliseconds(wait_);
    if (options_.survey.expiry <= options_.survey.interval) {
        throw cli::UsageError("--expiry must be longer than --interval, or nodes go before they are asked");
    }
    return options_;
}

}  // namespace netsurvey
