#pragma once
// "dump": a recording packet by packet.

#include <functional>

namespace CLI {
class App;
}

namespace recording {

/// Adds the command to `program`; see add_generate_command().
void add_dump_command(CLI::App& program, std::function<int()>& chosen);

}  // namespace recording
