#pragma once
// The command line.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "endpoint.h"
#include "outlet.h"
#include "rewrite.h"

namespace forwarder {

/// Exit statuses; the help text lists them.
inline constexpr int kExitClean = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitPortInUse = 3;

inline constexpr std::uint16_t kArtNetPort = 6454;

/// What the command line asks for.
struct Options {
    /// Ports to listen on, each once, in the order given.
    std::vector<std::uint16_t> ports{kArtNetPort};
    /// Tried in this order; the first that matches counts.
    std::vector<Rewrite> rewrites;
    /// Receives a copy of every accepted datagram.
    std::optional<Endpoint> tee;
    bool json = false;
    bool watch = false;
    /// What is done with packets besides sending them.
    OutletSettings outlet;
    /// Mark of what is sent to destinations, 0 to 63; 0: none.
    unsigned dscp = 0;
    /// Path of the file that the counters are written to; empty: none.
    std::string metrics;
};

/// The command line, read: either options to run with, or a text to print before leaving.
struct ParsedOptions {
    Options options;
    /// Set when the program is to end at once with this status.
    std::optional<int> exit_status;
    /// For standard output when the status is 0, otherwise for standard error.
    std::string message;
};

[[nodiscard]] ParsedOptions parse_options(int argc, const char* const* argv);

}  // namespace forwarder
