#pragma once
// The command line of cuewrightctl.

namespace ctl {

/// Reads the command line, does what it says and returns the exit status. Main thread, with Qt's application
/// object there.
[[nodiscard]] int run(int argc, const char* const* argv);

}  // namespace ctl
