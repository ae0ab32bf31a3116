#pragma once
// The frame of a companion program's main(): help, version, errors, exit statuses.

#include <functional>
#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

namespace cli {

// Exit statuses that all companions share; each program's help lists them, and its own from 3 on.
inline constexpr int kExitGood = 0;
/// What was asked for could not be done, or a check found something.
inline constexpr int kExitProblem = 1;
inline constexpr int kExitUsage = 2;

/// What was asked for cannot be done. The text is for the user: it names the file, the place and what was
/// expected. It begins in lower case and ends without a full stop.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& text, int status = kExitProblem)
        : std::runtime_error(text), status_(status) {}

    [[nodiscard]] int status() const noexcept { return status_; }

private:
    int status_;
};

/// The command line is wrong in a way that the option parser cannot see.
class UsageError : public Failure {
public:
    explicit UsageError(const std::string& text) : Failure(text, kExitUsage) {}
};

/**
 * Reads the command line with `app` and runs `body`; returns the exit status.
 *
 * Adds --version. Help and version go to standard output with status 0; a wrong command line and what `body`
 * throws go to standard error as "PROGRAM: reason". `app` must carry the program's name. What a subcommand
 * does is for `body` to find out. A standard output that could not be written (a full disk) is an error too.
 */
[[nodiscard]] int run(CLI::App& app, int argc, const char* const* argv, const std::function<int()>& body);

}  // namespace cli
