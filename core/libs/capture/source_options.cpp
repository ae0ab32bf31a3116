#include "capture/source_options.h"

#include <cstdio>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "capture/receive_buffer.h"
#include "cli/failure.h"
#include "cli/value_text.h"
#include "posix/ipv4.h"
#include "posix/port_sharing.h"

namespace capture {

namespace {

std::optional<std::chrono::nanoseconds> limit_of(const char* option, const std::string& text) {
    if (text.empty()) {
        return std::nullopt;
    }
    const std::chrono::nanoseconds time = cli::parse_time(option, text);
    if (time.count() == 0) {
        throw cli::UsageError(std::string(option) + ": expected more than 0");
    }
    return time;
}

}  // namespace

EndpointFilter SourceOptions::filter() const {
    if (sender.empty()) {
        return {};
    }
    try {
        return EndpointFilter(sender);
    } catch (const std::invalid_argument& error) {
        throw cli::UsageError(std::string("--source: ") + error.what());
    }
}

Limits LimitOptions::limits() const {
    return {limit_of("--duration", duration), limit_of("--until-idle", idle)};
}

void add_source_options(CLI::App& command, SourceOptions& options) {
    command
        .add_option("--port", options.port,
                    "UDP port to listen on (default 6454); 0: a free one, which the first line names")
        ->check(CLI::Range(0, 65535))
        ->type_name("PORT");
    command
        .add_option("--address", options.address,
                    "Listen on this address of the machine only (default all); a single address gets no "
                    "broadcasts")
        ->type_name("ADDRESS");
    command.add_option("--interface", options.interface, "Listen on this network interface only")
        ->type_name("NAME");
    command
        .add_option(
            "--packet-socket", options.packet_socket,
            "Watch what passes this interface instead of listening; needs privileges, disturbs nobody")
        ->type_name("NAME")
        ->excludes("--address")
        ->excludes("--interface");
    command.add_flag("--wrapped", options.wrapped,
                     "Take the service's forwarding datagrams, as a forwarder's --tee sends them; the "
                     "destination in each stands for its source");
    command.add_option("--source", options.sender, "Take what comes from this sender only")
        ->type_name("ADDRESS[:PORT]");
}

void add_limit_options(CLI::App& command, LimitOptions& options, const std::string& idle_help) {
    command.add_option("--duration", options.duration, "End after this time")->type_name("TIME");
    command.add_option("--until-idle", options.idle, idle_help)->type_name("TIME");
}

std::unique_ptr<Source> open_source(const SourceOptions& options, const std::string& program) {
    std::unique_ptr<Source> source;
    if (!options.packet_socket.empty()) {
        if (options.port == 0) {
            throw cli::UsageError("--packet-socket: needs the --port to watch, 1 to 65535");
        }
        source = open_packet_socket(options.packet_socket, options.port);
    } else {
        UdpPlace place{0, options.port, options.interface};
        if (!options.address.empty()) {
            const std::optional<std::uint32_t> address = posix::parse_ipv4(options.address);
            if (!address) {
                throw cli::UsageError("--address: expected an IPv4 address, not \"" + options.address + "\"");
            }
            place.address = *address;
        }
        source = open_udp(place);
    }
    std::fprintf(stderr, "%s: listening on %s, receive buffer %d bytes\n", program.c_str(),
                 source->place().c_str(), source->receive_buffer());
    for (const std::string& line : posix::robbed_of_unicast(source->descriptor())) {
        std::fprintf(stderr, "%s: %s; watch with --packet-socket to leave it there\n", program.c_str(),
                     line.c_str());
    }
    if (const std::string advice = receive_buffer_advice(source->receive_buffer()); !advice.empty()) {
        std::fprintf(stderr, "%s: %s\n", program.c_str(), advice.c_str());
    }
    return source;
}

}  // namespace capture
