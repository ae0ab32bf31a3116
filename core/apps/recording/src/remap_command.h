#pragma once
// "remap": renumbers the universes of a recording.

#include <functional>

namespace CLI {
class App;
}

namespace recording {

/// Adds the command to `program`; see add_generate_command().
void add_remap_command(CLI::App& program, std::function<int()>& chosen);

}  // namespace recording
