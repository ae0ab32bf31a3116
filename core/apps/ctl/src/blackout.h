#pragma once
// Stops everything and makes the outputs dark.

#include <string>

#include "bus.h"

namespace ctl {

/// What the command line says.
struct BlackoutOptions {
    /// Data directory; empty: that of the running service.
    std::string data;
    /// Empty: that of eth0.
    std::string broadcast;
    bool dry_run = false;
    bool json = false;
};

/**
 * Stops every playlist, since one that plays on would light its outputs again, and then sends zeros.
 *
 * What is known without reading recordings is dark at once, the rest as it is found. Goes as far as it can: a
 * bus, a service or a discovery that is not there and files that cannot be read cost a line on standard error
 * each. Returns the exit status, which is not good where the service may play on.
 */
[[nodiscard]] int blackout(const BusSettings& settings, const BlackoutOptions& options);

}  // namespace ctl
