#pragma once
// The doctor's checks: each a function of what was found, so that a test can make it find anything.

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "show.h"

namespace ctl {

enum class Verdict {
    Good,
    Unknown,  ///< cannot be found out here; counts as good
    Problem
};

/// What a check has found.
struct Finding {
    /// Name of the check, one word.
    std::string check;
    Verdict verdict = Verdict::Good;
    std::string text;
    /// What to do; empty unless there is something.
    std::string advice;
};

/// What was learned by asking the bus.
struct BusFacts {
    std::string address;
    /// Why it cannot be used; empty when it can.
    std::string bus_problem;
    /// Process of the service; none when it is not there.
    std::optional<int> player;
    /// Why it does not answer; empty when it does, or is not there.
    std::string player_problem;
    /// Nodes of the discovery; none when it is not there or does not answer.
    std::optional<std::size_t> nodes;
    std::string discovery_problem;
};

[[nodiscard]] Finding check_bus(const BusFacts& facts);
[[nodiscard]] Finding check_service(const BusFacts& facts);
[[nodiscard]] Finding check_discovery(const BusFacts& facts);

// `root` stands before /proc and /sys; empty but for tests.

/// Who listens on 127.0.0.1:6454.
[[nodiscard]] Finding check_forwarder(const std::string& root);
/// Whether every other port of the show's outputs has the forwarder as listener on 127.0.0.1, and whether two
/// programs take each other's unicast away. @param ports  nothing where the show is not known
[[nodiscard]] Finding check_ports(const std::string& root, const std::optional<std::set<int>>& ports);
/// Receive and send buffers that a burst fits in.
[[nodiscard]] Finding check_buffers(const std::string& root);
/// Processor frequency.
[[nodiscard]] Finding check_governor(const std::string& root);

/// The system clock as the kernel sees it.
struct ClockState {
    /// Set by a time service.
    bool synchronised = false;
};
[[nodiscard]] ClockState read_clock_state();
[[nodiscard]] Finding check_clock(const std::string& root, const ClockState& state);

/// Memory for the show. @param needed  bytes of the recordings of the largest playlist
[[nodiscard]] Finding check_memory(const std::string& root, std::uint64_t needed);

/// Description files and recordings. @param why_unknown  why there is no directory; empty when there is one
[[nodiscard]] Finding check_data(const Show& show, const std::string& why_unknown);

}  // namespace ctl
