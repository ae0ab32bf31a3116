#pragma once
// The command "plot" of cuewright-recording.

#include <functional>

#include <CLI/CLI.hpp>

namespace plot {

/// Adds the command to `program`; when it is given, `chosen` becomes what carries it out.
void add_plot_command(CLI::App& program, std::function<int()>& chosen);

}  // namespace plot
