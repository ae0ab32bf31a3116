#include "options.h"

#include <algorithm>

#include <CLI/CLI.hpp>

#include "cuewright/version.h"
#include "option_values.h"
#include "text.h"

namespace forwarder {

namespace {

constexpr const char* kDescription =
    "Delivers the Art-Net packets of the playback service.\n\n"
    "Listens on 127.0.0.1 for forwarding datagrams (a 24-byte header that names the real destination,\n"
    "and a 530-byte Art-Net packet) and sends each packet to the address and port in its header: unchanged\n"
    "and nothing else, unless options ask for more.";

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
  cuewright-forwarder --sequence --sync --keep-alive --dscp
      numbers that rise for each receiver, ArtSync after each frame, the last look sent again each 0.9 s,
      all of it marked as expedited forwarding
  cuewright-forwarder --pace 2000 --trim --metrics /var/lib/prometheus/node-exporter/forwarder.prom
      spare slow receivers: a packet each 0.5 ms at most and no longer than needed; counters as a file

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
  --sequence, --sync, --keep-alive and --pace follow 4,096 pairs of universe and destination; packets of
  later ones keep their numbers, are not sent again, and are counted ("untracked").
  --pace lets one frame of each such pair wait, 2,048 frames of one destination and 8,192 in all; a newer frame
  takes the older one's place, and both that and what finds no room are counted.
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

/// Values as they stand on the command line.
struct Texts {
    std::vector<std::uint16_t> ports;
    std::vector<std::string> rewrites;
    std::string tee;
    std::string keep_alive;
    std::string pace;
    std::string dscp;
};

void declare_basics(CLI::App& app, Options& options, Texts& texts) {
    app.add_option("--port", texts.ports, "Port on 127.0.0.1 to listen on; repeatable (default 6454)")
        ->allow_extra_args(false)
        ->check(CLI::Range(1, 65535))
        ->type_name("PORT");
    app.add_option("--rewrite", texts.rewrites,
                   "Send what is addressed to FROM-NET to TO-ADDRESS, at the same port; repeatable, "
                   "the first match counts")
        ->allow_extra_args(false)
        ->type_name("FROM-NET=TO-ADDRESS");
    app.add_option("--tee", texts.tee, "Send a copy of every accepted datagram there, all 554 bytes")
        ->type_name("ADDRESS:PORT");
    app.add_flag("--json", options.json, "Print reports as JSON, one object a line");
    app.add_flag("--watch", options.watch,
                 "Show frames per second, intervals and levels of each universe, live in a terminal, "
                 "otherwise as lines once a second");
    app.add_option("--metrics", options.metrics,
                   "Write the counters to FILE as text for Prometheus, every 5 seconds and at the end")
        ->type_name("FILE");
}

void declare_outlet(CLI::App& app, Options& options, Texts& texts) {
    app.add_flag("--sequence", options.outlet.sequence,
                 "Number the packets of each universe and destination anew, 1 to 255");
    app.add_flag("--sync", options.outlet.sync,
                 "Send an ArtSync to a destination after each group of its packets");
    app.add_option(
           "--keep-alive", texts.keep_alive,
           "Send the last frame of a universe and destination again after that much silence, 0.8 to 1")
        ->expected(0, 1)
        ->default_str("0.9")
        ->type_name("[SECONDS]");
    app.add_option("--pace", texts.pace,
                   "Send each destination at most so many packets per second (1 to 100000), or one each "
                   "so many us or ms (10us to 1000ms)")
        ->type_name("RATE|GAP");
    app.add_option(
           "--dscp", texts.dscp,
           "Mark what is sent to destinations with this class: EF, CS0 to CS7, AF11 to AF43, or 0 to 63")
        ->expected(0, 1)
        ->default_str("EF")
        ->type_name("[CLASS]");
    app.add_flag("--trim", options.outlet.trim,
                 "Send ArtDmx packets no longer than their Length field asks for, instead of all 530 bytes");
}

/// Fills in what the outlet's texts stand for; what is wrong with one, or nothing.
std::string read_outlet(const CLI::App& app, const Texts& texts, Options& options) {
    if (app.count("--keep-alive") != 0) {
        options.outlet.keep_alive = parse_keep_alive(texts.keep_alive);
        if (!options.outlet.keep_alive) {
            return "--keep-alive " + texts.keep_alive + ": expected 0.8 to 1 seconds, for example 0.9";
        }
    }
    if (app.count("--pace") != 0) {
        options.outlet.pace = parse_pace(texts.pace);
        if (!options.outlet.pace) {
            return "--pace " + texts.pace +
                   ": expected packets per second from 1 to 100000, or a gap from 10us to 1000ms, for "
                   "example "
                   "4000 or 250us";
        }
    }
    if (app.count("--dscp") != 0) {
        const auto dscp = parse_dscp(texts.dscp);
        if (!dscp) {
            return "--dscp " + texts.dscp +
                   ": expected EF, CS0 to CS7, AF11 to AF43, or a number from 0 to 63";
        }
        options.dscp = *dscp;
    }
    if (app.count("--metrics") != 0 && options.metrics.empty()) {
        return "--metrics: expected the path of a file";
    }
    return {};
}

/// The same for the others.
std::string read_basics(const CLI::App& app, const Texts& texts, Options& options) {
    if (!texts.ports.empty()) {
        options.ports = texts.ports;
    }
    for (const std::string& rule_text : texts.rewrites) {
        Rewrite rule;
        if (const std::string reason = parse_rewrite(rule_text, rule); !reason.empty()) {
            return text("--rewrite %s: %s", rule_text.c_str(), reason.c_str());
        }
        options.rewrites.push_back(rule);
    }
    if (app.count("--tee") != 0) {
        options.tee = parse_endpoint(texts.tee);
        if (!options.tee) {
            return "--tee " + texts.tee + ": expected ADDRESS:PORT, for example 127.0.0.1:7000";
        }
    }
    return {};
}

}  // namespace

ParsedOptions parse_options(int argc, const char* const* argv) {
    ParsedOptions parsed;
    Options& options = parsed.options;
    Texts texts;
    CLI::App app{kDescription, "cuewright-forwarder"};
    app.footer(kFooter);
    app.set_version_flag("--version", "cuewright-forwarder " CUEWRIGHT_VERSION);
    declare_basics(app, options, texts);
    declare_outlet(app, options, texts);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForVersion& call) {
        return {{}, kExitClean, std::string(call.what()) + "\n"};
    } catch (const CLI::CallForHelp&) {
        return {{}, kExitClean, app.help()};
    } catch (const CLI::ParseError& error) {
        return usage_error(error.what());
    }
    for (const std::string& reason :
         {read_basics(app, texts, options), read_outlet(app, texts, options), check_meaning(options)}) {
        if (!reason.empty()) {
            return usage_error(reason);
        }
    }
    return parsed;
}

}  // namespace forwarder
