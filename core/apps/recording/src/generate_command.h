#pragma once
// "generate": writes a recording of a test pattern.

#include <functional>

namespace CLI {
class App;
}

namespace recording {

/// Adds the command to `program`. When it is given, parsing the command line sets `chosen` to what does it
/// and returns the exit status.
void add_generate_command(CLI::App& program, std::function<int()>& chosen);

}  // namespace recording
