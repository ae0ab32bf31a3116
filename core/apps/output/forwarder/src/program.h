#pragma once
// The whole program but main().

namespace forwarder {

/// Reads the command line, forwards until a signal ends it, and returns the exit status.
[[nodiscard]] int run_program(int argc, const char* const* argv);

}  // namespace forwarder
