#pragma once
// "merge": puts several recordings into one by time.

#include <functional>

namespace CLI {
class App;
}

namespace recording {

/// Adds the command to `program`; see add_generate_command().
void add_merge_command(CLI::App& program, std::function<int()>& chosen);

}  // namespace recording
