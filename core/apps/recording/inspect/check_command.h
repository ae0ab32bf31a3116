#pragma once
// The command "check" of cuewright-recording.

#include <functional>

#include <CLI/CLI.hpp>

namespace inspect {

/// Adds the command to `program`; when it is given, `chosen` becomes what carries it out.
void add_check_command(CLI::App& program, std::function<int()>& chosen);

}  // namespace inspect
