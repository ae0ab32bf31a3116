#pragma once
// Whether a bus daemon answers at all.

#include <chrono>
#include <string>

namespace ctl {

/**
 * Begins the greeting that every client begins with and waits for the daemon's first word.
 *
 * Qt waits for that word without end, so a daemon that hangs would hang its clients. False when nothing comes
 * in time. True for what cannot be tried: no socket there, or not a Unix socket; connecting then says why, at
 * once.
 */
[[nodiscard]] bool daemon_answers(const std::string& address, std::chrono::milliseconds time);

}  // namespace ctl
