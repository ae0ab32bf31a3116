#pragma once
// Where polls go: the broadcast addresses of this machine's interfaces.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace netsurvey {

/// An address to poll, host byte order, and what to call it.
struct PollTarget {
    std::string name;
    std::uint32_t address = 0;
};

/**
 * The broadcast addresses of all interfaces that are up and can broadcast, each once.
 *
 * Looked up anew for each poll, since interfaces come and go.
 *
 * @param wanted  names to confine it to; empty: all
 */
[[nodiscard]] std::vector<PollTarget> broadcast_targets(std::span<const std::string> wanted);

}  // namespace netsurvey
