#pragma once
// How the simulated node describes itself.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "artnet/poll.h"

namespace node {

using PollReply = std::array<std::uint8_t, artnet::kPollReplySize>;

/// Bind indexes are counted in a byte, from 1.
inline constexpr std::size_t kMaxReplies = 255;

/// The universes of each reply: up to four that share net and sub-net.
/// @param universes  ascending, each once
[[nodiscard]] std::vector<std::vector<std::uint16_t>> split_into_replies(
    std::span<const std::uint16_t> universes);

/**
 * One datagram a bind index.
 *
 * @param universes  ascending, each once; at most kMaxReplies replies' worth
 * @param address    host byte order
 */
[[nodiscard]] std::vector<PollReply> answer_poll(std::span<const std::uint16_t> universes,
                                                 const std::string& name, std::uint32_t address,
                                                 std::uint16_t port);

}  // namespace node
