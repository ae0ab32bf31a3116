#pragma once
// The demo's command line.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace demo {

inline constexpr std::uint16_t kArtNetPort = 6454;

struct Options {
    std::filesystem::path service;
    std::filesystem::path forwarder;
    /// Need not be there.
    std::filesystem::path monitor;
    std::uint16_t port = kArtNetPort;
    /// Where the show is kept; empty: nowhere.
    std::filesystem::path keep;
    /// Names of the calls that are left out.
    std::vector<std::string> skipped;
};

/// Either options to run with, or a text to print before leaving with a status.
struct ParsedOptions {
    Options options;
    std::optional<int> exit_status;
    std::string message;
};

/// @param calls  names of the calls that may be left out
[[nodiscard]] ParsedOptions parse_options(int argc, const char* const* argv,
                                          const std::vector<std::string>& calls);

}  // namespace demo
