#pragma once
// The program between its command line and its report.

#include "options.h"

namespace node {

/// Listens and answers until a signal comes or the time is over; the exit status. Throws cli::Failure.
[[nodiscard]] int run_node(const Options& options);

}  // namespace node
