#pragma once
// The command line.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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

/// Adds the options to the program's command line. What needs more than CLI11's checks is done by finish().
class OptionReader {
public:
    explicit OptionReader(CLI::App& app);
    OptionReader(const OptionReader&) = delete;
    OptionReader& operator=(const OptionReader&) = delete;

    /// After the command line has been read. Throws cli::UsageError.
    [[nodiscard]] Options finish();

private:
    Options options_;
    std::vector<std::string> universes_;
    std::string address_;
    double duration_ = 0;
    double frame_gap_ = 5;
};

}  // namespace node
