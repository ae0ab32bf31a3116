#pragma once
// The frame of a companion program's main(): help, version, errors, exit statuses.

#include <functional>

#include <CLI/CLI.hpp>

#include "cli/failure.h"

namespace cli {

/**
 * Reads the command line with `app` and runs `body`; returns the exit status.
 *
 * Adds --version. Help and version go to standard output with status 0; a wrong command line and what `body`
 * throws go to standard error as "PROGRAM: reason". `app` must carry the program's name. What a subcommand
 * does is for `body` to find out. A standard output that could not be written (a full disk) is an error too.
 */
[[nodiscard]] int run(CLI::App& app, int argc, const char* const* argv, const std::function<int()>& body);

}  // namespace cli
