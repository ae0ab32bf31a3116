#pragma once
// The command line.

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "cli/program.h"
#include "survey.h"

namespace netsurvey {

/// Another discovery has the name on the bus.
inline constexpr int kExitNameTaken = 3;

/// What the command line asks for.
struct Options {
    SurveySettings survey;
    /// File of static nodes.
    std::optional<std::string> static_file;
    /// File that remembers the nodes from one run to the next; by default one of the bus's own.
    std::optional<std::string> state_file;
    /// Show the nodes and end.
    bool list = false;
    bool json = false;
    /// How long a list of our own is made.
    std::chrono::milliseconds wait{4000};
    /// Print each message.
    bool verbose = false;
};

/// Adds the options to the program's command line. The function is to be kept while that is read and called
/// afterwards: it checks what CLI11 does not, and throws cli::UsageError.
[[nodiscard]] std::function<Options()> add_options(CLI::App& app);

}  // namespace netsurvey
