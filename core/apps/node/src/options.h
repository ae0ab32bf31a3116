#pragma once
// The command line.

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "cli/program.h"
#include "node.h"

namespace node {

/// What the command line asks for.
struct Options {
    NodeSettings node;
    /// Host byte order.
    std::optional<std::uint32_t> address;
    std::optional<std::chrono::milliseconds> duration;
    bool json = false;
};

/// Adds the options to the program's command line. The function is to be kept while that is read and called
/// afterwards: it checks what CLI11 does not, and throws cli::UsageError.
[[nodiscard]] std::function<Options()> add_options(CLI::App& app);

}  // namespace node
