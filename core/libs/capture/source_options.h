#pragma once
// The options by which a program is told what to capture, and until when.

#include <memory>
#include <string>

#include "capture/arrival.h"
#include "capture/endpoint.h"
#include "capture/limited_reader.h"
#include "capture/source.h"

namespace CLI {
class App;
}

namespace capture {

/// Where to listen and whom to hear.
struct SourceOptions {
    std::uint16_t port = 6454;
    std::string address;
    std::string interface;
    std::string packet_socket;
    bool wrapped = false;
    std::string sender;

    [[nodiscard]] Payload payload() const noexcept { return wrapped ? Payload::Wrapped : Payload::Plain; }
    /// Throws cli::UsageError.
    [[nodiscard]] EndpointFilter filter() const;
};

/// When to end.
struct LimitOptions {
    std::string duration;
    std::string idle;

    /// Throws cli::UsageError.
    [[nodiscard]] Limits limits() const;
};

/// Adds --port, --address, --interface, --packet-socket, --wrapped and --source; `options` outlives parsing.
void add_source_options(CLI::App& command, SourceOptions& options);

/// Adds --duration and --until-idle; `options` outlives parsing.
/// @param idle_help  what it is that does not come for a time, as a sentence without a full stop
void add_limit_options(CLI::App& command, LimitOptions& options, const std::string& idle_help);

/// Opens what the options name and says on standard error where it listens, whose unicast that takes, and
/// what to do about a small receive buffer. Throws cli::UsageError and SourceError.
[[nodiscard]] std::unique_ptr<Source> open_source(const SourceOptions& options, const std::string& program);

}  // namespace capture
