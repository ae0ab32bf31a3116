#pragma once
// The command line.

#include <optional>
#include <string>
#include <vector>

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

/// Adds the options to the program's command line. What needs more than one of them is checked by finish().
class OptionReader {
public:
    explicit OptionReader(CLI::App& app);
    OptionReader(const OptionReader&) = delete;
    OptionReader& operator=(const OptionReader&) = delete;

    /// After the command line has been read. Throws cli::UsageError.
    [[nodiscard]] Options finish();

private:
    Options options_;
    std::vector<std::string> targets_;
    double interval_;
    double expiry_;
    double wait_;
};

}  // namespace netsurvey
