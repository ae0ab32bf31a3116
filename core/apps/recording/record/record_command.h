#pragma once
// "record": captures live Art-Net into a recording.

#include <functional>

namespace CLI {
class App;
}

namespace recording {

/// Adds the command to `program`. When it is given, parsing the command line sets `chosen` to what does it
/// and returns the exit status.
void add_record_command(CLI::App& program, std::function<int()>& chosen);

}  // namespace recording
