#pragma once
// "info": what a recording holds and how long it plays.

#include <functional>

namespace CLI {
class App;
}

namespace recording {

/// Adds the command to `program`; see add_generate_command().
void add_info_command(CLI::App& program, std::function<int()>& chosen);

}  // namespace recording
