#pragma once
// The whole of cuewright-monitor but main().

namespace monitor {

/// Runs the program; returns its exit status.
[[nodiscard]] int run_program(int argc, const char* const* argv);

}  // namespace monitor
