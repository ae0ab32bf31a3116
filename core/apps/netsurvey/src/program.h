#pragma once
// The program: serves on the bus, or shows a list.

#include "options.h"
#include "posix/stop_signals.h"

namespace netsurvey {

/// Serves until a signal comes; the exit status. Needs an application object. Throws cli::Failure.
[[nodiscard]] int run_service(const Options& options, posix::StopSignals& stop);

/// Shows the list of the running discovery, or without one, what answers within some seconds. As above.
[[nodiscard]] int run_list(const Options& options, posix::StopSignals& stop);

}  // namespace netsurvey
