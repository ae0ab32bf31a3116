#pragma once
// Looks at everything that playback needs and says what to do.

#include <set>
#include <string>
#include <vector>

#include "bus.h"
#include "checks.h"

namespace ctl {

/// What the command line says.
struct DoctorOptions {
    /// Data directory; empty: that of the running service.
    std::string data;
    /// Names of checks that are left out.
    std::set<std::string> skip;
    bool json = false;
};

/// Names of all checks, in their order.
[[nodiscard]] const std::vector<std::string>& check_names();

/// Runs the checks and prints what they find. Returns the exit status: good unless one has found a problem.
[[nodiscard]] int doctor(const BusSettings& settings, const DoctorOptions& options);

/// Asks the bus what the checks need to know.
[[nodiscard]] BusFacts ask_bus_facts(const BusSettings& settings);

}  // namespace ctl
