#pragma once
// The program cuewright-check, all of it but main().

namespace datacheck {

/// Reads the command line, checks and prints. Returns the exit status.
[[nodiscard]] int run_program(int argc, const char* const* argv);

}  // namespace datacheck
