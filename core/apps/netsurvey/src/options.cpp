#include "options.h"

#include <cmath>
#include <memory>
#include <vector>

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
  SIGINT, SIGTERM, SIGHUP   end with status 0; the player keeps its nodes

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

/// What the command line says, before it is checked.
struct Words {
    Options options;
    std::vector<std::string> targets;
    double interval = seconds(options.survey.interval);
    double expiry = seconds(options.survey.expiry);
    double wait = seconds(options.wait);
};

Options options_of(const Words& words) {
    Options options = words.options;
    for (const std::string& text : words.targets) {
        const std::optional<std::uint32_t> address = posix::parse_ipv4(text);
        if (!address) {
            throw cli::UsageError("--target " + text + ": expected an IPv4 address");
        }
        options.survey.targets.push_back(*address);
    }
    if (!words.targets.empty() && !options.survey.interfaces.empty()) {
        throw cli::UsageError("--interface and --target exclude each other");
    }
    if (options.json && !options.list) {
        throw cli::UsageError("--json goes with --list");
    }
    options.survey.interval = milliseconds(words.interval);
    options.survey.expiry = milliseconds(words.expiry);
    options.wait = milliseconds(words.wait);
    if (options.survey.expiry <= options.survey.interval) {
        throw cli::UsageError("--expiry must be longer than --interval, or nodes go before they are asked");
    }
    return options;
}

}  // namespace

std::function<Options()> add_options(CLI::App& app) {
    const auto words = std::make_shared<Words>();
    app.footer(kFooter);
    app.add_option("--interface", words->options.survey.interfaces,
                   "Network interface to poll on; repeatable (default: all that can broadcast)")
        ->allow_extra_args(false)
        ->type_name("NAME");
    app.add_option("--target", words->targets,
                   "Address to poll instead of the interfaces' broadcast addresses; repeatable")
        ->allow_extra_args(false)
        ->type_name("ADDRESS");
    app.add_option("--static", words->options.static_file, "JSON file of nodes that answer no polls")
        ->type_name("FILE");
    app.add_option("--port", words->options.survey.port, "Port that the nodes listen at (default 6454)")
        ->check(CLI::Range(1, 65535))
        ->type_name("PORT");
    app.add_option("--interval", words->interval,
                   "Time between polls (default 2.75; the protocol asks for 2.5 to 3)")
        ->check(CLI::Range(0.05, 60.0))
        ->type_name("SECONDS");
    app.add_option("--expiry", words->expiry, "Time after a node's last reply until it is gone (default 10)")
        ->check(CLI::Range(0.1, 3600.0))
        ->type_name("SECONDS");
    app.add_option(
           "--state", words->options.state_file,
           "File that keeps the nodes for the next run (default: one in the user's runtime directory)")
        ->type_name("FILE");
    app.add_flag("--list", words->options.list, "Show the nodes and end");
    app.add_flag("--json", words->options.json, "With --list: as a JSON array");
    app.add_option("--wait", words->wait, "With --list, when no discovery runs: how long to look (default 4)")
        ->check(CLI::Range(0.1, 600.0))
        ->type_name("SECONDS");
    app.add_flag("--verbose", words->options.verbose, "Print each message to the player on standard error");
    return [words] { return options_of(*words); };
}

}  // namespace netsurvey
