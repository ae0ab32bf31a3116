#include "options.h"

#include <algorithm>

#include <CLI/CLI.hpp>

#include "cuewright/version.h"
#include "text.h"

namespace forwarder {

namespace {

constexpr const char* kDescription =
    "Delivers the Art-Net packets of the playback service.\n\n"
    "Listens on 127.0.0.1 for forwarding datagrams (a 24-byte header that names the real destination,\n"
    "and a 530-byte Art-Net packet) and sends each packet unchanged to the address and port in its header.";

constexpr const char* kFooter =
    R"(Examples:
  cuewright-forwarder
      deliver what arrives at 127.0.0.1:6454
  cuewright-forwarder --port 6454 --port 6455
      the same for two ports; the service sends to the port of each destination
  cuewright-forwarder --rewrite 192.0.2.0/24=127.0.0.2 --watch
      keep a test rig's packets on this machine and watch them
  cuewright-forwarder --tee 127.0.0.1:7000 --json
      copy every accepted datagram, header included, to port 7000; reports as JSON

Signals:
  SIGUSR1           print the counters to standard output
  SIGINT, SIGTERM   deliver what has arrived, print the counters, end with status 0

Exit status:
  0  ended by a signal, or --help, or --version
  1  the system refused something that the program needs
  2  the command line is wrong
  3  a port is in use

Limits:
  512 destinations have counters, a back-off and a socket of their own; later ones share one.
  --watch follows 256 pairs of universe and destination, and the last 5 seconds of each (512 packets at most).
)";

/// Checks of what each option means, beyond its form; empty when all is well.
std::string check_meaning(const Options& options) {
    std::vector<std::uint16_t> sorted = options.ports;
    std::ranges::sort(sorted);
    if (const auto twice = std::ranges::adjacent_find(sorted); twice != sorted.end()) {
        return text("--port %u is given twice", unsigned{*twice});
    }
    // The copy has the size of a datagram, so it would be taken in and copied again without end.
    if (options.tee && (options.tee->address == kLoopbackAddress || options.tee->address == 0) &&
        std::ranges::count(options.ports, options.tee->port) != 0) {
        return "--tee " + to_text(*options.tee) + " is a port that this program listens on itself";
    }
    return {};
}

ParsedOptions usage_error(const std::string& reason) {
    return {{},
            kExitUsage,
            "cuewright-forwarder: " + reason + "\nTry \"cuewright-forwarder --help\" for more.\n"};
}

}  // namespace

ParsedOptions parse_options(int argc, const char* const* argv) {
    ParsedOptions parsed;
    Options& options = parsed.options;
    std::vector<std::uint16_t> ports;
    std::vector<std::string> rewrites;
    std::string tee;

    CLI::App app{kDescription, "cuewright-forwarder"};
    app.footer(kFooter);
    app.set_version_flag("--version", "cuewright-forwarder " CUEWRIGHT_VERSION);
    app.add_option("--port", ports, "Port on 127.0.0.1 to listen on; repeatable (default 6454)")
        ->allow_extra_args(false)
        ->check(CLI::Range(1, 65535))
        ->type_name("PORT");
    app.add_option("--rewrite", rewrites,
                   "Send what is addressed to FROM-NET to TO-ADDRESS, at the same port; repeatable, "
                   "the first match counts")
        ->allow_extra_args(false)
        ->type_name("FROM-NET=TO-ADDRESS");
    app.add_option("--tee", tee, "Send a copy of every accepted datagram there, all 554 bytes")
        ->type_name("ADDRESS:PORT");
    app.add_flag("--json", options.json, "Print reports as JSON, one object a line");
    app.add_flag("--watch", options.watch,
                 "Show frames per second, intervals and levels of each universe, live in a terminal, "
                 "otherwise as lines once a second");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForVersion& call) {
        return {{}, kExitClean, std::string(call.what()) + "\n"};
    } catch (const CLI::CallForHelp&) {
        return {{}, kExitClean, app.help()};
    } catch (const CLI::ParseError& error) {
        return usage_error(error.what());
    }

    if (!ports.empty()) {
        options.ports = ports;
    }
    for (const std::string& rule_text : rewrites) {
        Rewrite rule;
        if (const std::string reason = parse_rewrite(rule_text, rule); !reason.empty()) {
            return usage_error(text("--rewrite %s: %s", rule_text.c_str(), reason.c_str()));
        }
        options.rewrites.push_back(rule);
    }
    if (!tee.empty() || app.count("--tee") != 0) {
        options.tee = parse_endpoint(tee);
        if (!options.tee) {
            return usage_error("--tee " + tee + ": expected ADDRESS:PORT, for example 127.0.0.1:7000");
        }
    }
    if (const std::string reason = check_meaning(options); !reason.empty()) {
        return usage_error(reason);
    }
    return parsed;
}

}  // namespace forwarder
