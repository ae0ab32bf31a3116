#pragma once
// "cut": takes a time range out of a recording.

#include <functional>

namespace CLI {
class App;
}

namespace recording {

/// Adds the command to `program`; see add_generate_command().
void add_cut_command(CLI::App& program, std::function<int()>& chosen);

}  // namespace recording
