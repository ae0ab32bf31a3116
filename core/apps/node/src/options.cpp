#include "options.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "artnet/universe_ranges.h"
#include "cli/value_text.h"
#include "posix/ipv4.h"

namespace node {

namespace {

constexpr const char* kFooter =
    R"(Examples:
  cuewright-node --universe 0-3
      a node with four universes on all addresses of this machine; Ctrl-C shows what came
  cuewright-node --universe 0-15 --name "Front truss" --address 10.0.0.21
  cuewright-node --universe 16-31 --name "Back truss" --address 10.0.0.22
      two nodes on one machine that has both addresses
  cuewright-node --universe 0 --duration 60 --json
      one minute, the report for a program

Signals:
  SIGUSR1                   print the report
  SIGINT, SIGTERM, SIGHUP   print the report and end with status 0

Exit status:
  0  ended by a signal or after --duration
  1  the system refused something that the program needs
  2  the command line is wrong
)";

/// What the command line says, before it is checked.
struct Words {
    Options options;
    std::vector<std::string> universes;
    std::string address;
    double duration = 0;
    double frame_gap = 5;
};

Options options_of(const Words& words) {
    Options options = words.options;
    for (const std::string& text : words.universes) {
        for (const std::uint32_t universe :
             cli::numbers_of("--universe", cli::parse_ranges("--universe", text, artnet::kLastUniverse))) {
            options.node.universes.push_back(static_cast<std::uint16_t>(universe));
        }
    }
    std::vector<std::uint16_t>& all = options.node.universes;
    std::ranges::sort(all);
    all.erase(std::unique(all.begin(), all.end()), all.end());
    if (split_into_replies(all).size() > kMaxReplies) {
        throw cli::UsageError("--universe: more than a node can have (255 replies of up to four universes)");
    }
    if (!words.address.empty()) {
        options.address = posix::parse_ipv4(words.address);
        if (!options.address || *options.address == 0) {
            throw cli::UsageError("--address " + words.address +
                                  ": expected an IPv4 address of this machine");
        }
    }
    if (words.duration > 0) {
        options.duration = std::chrono::milliseconds(std::llround(words.duration * 1000.0));
    }
    options.node.frame_gap = std::chrono::nanoseconds(std::llround(words.frame_gap * 1e6));
    return options;
}

}  // namespace

std::function<Options()> add_options(CLI::App& app) {
    const auto words = std::make_shared<Words>();
    app.footer(kFooter);
    app.add_option("--universe", words->universes,
                   "Universes of the node, 0 to 32767: 8, 0-3 or 0-3,8; repeatable")
        ->required()
        ->allow_extra_args(false)
        ->type_name("RANGES");
    app.add_option("--name", words->options.node.name,
                   "Name of the node, up to 17 bytes (default cuewright-node)")
        ->type_name("TEXT");
    app.add_option("--address", words->address, "The node's own address (default: any of this machine's)")
        ->type_name("ADDRESS");
    app.add_option("--port", words->options.node.port, "Port to listen at (default 6454)")
        ->check(CLI::Range(1, 65535))
        ->type_name("PORT");
    app.add_option("--frame-gap", words->frame_gap,
                   "Pause that separates frames, where no ArtSync does (default 5)")
        ->check(CLI::Range(0.01, 10'000.0))
        ->type_name("MILLISECONDS");
    app.add_option("--duration", words->duration, "End by itself after this time")
        ->check(CLI::Range(0.001, 1e8))
        ->type_name("SECONDS");
    app.add_flag("--json", words->options.json, "Print reports as JSON, one object a line");
    return [words] { return options_of(*words); };
}

}  // namespace node
