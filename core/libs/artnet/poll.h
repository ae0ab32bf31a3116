#pragma once
// ArtPoll and ArtPollReply as datagrams: how nodes are asked for and how they answer.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "artnet/records.h"

namespace artnet {

inline constexpr std::uint16_t kPort = 6454;

inline constexpr std::size_t kPollSize = sizeof(ArtPoll);
inline constexpr std::size_t kPollReplySize = sizeof(ArtPollReply);
/// The first version's reply ends behind the hardware address. Later ones added the binding (213 bytes) and
/// filler (239 bytes).
inline constexpr std::size_t kShortestPollReply = 207;
static_assert(offsetof(ArtPollReply, BindIp) == kShortestPollReply);

/// In ArtPoll's Flags: answer without being asked, too, whenever something changes.
inline constexpr std::uint8_t kReplyOnChange = 0x02;
/// In PortTypes: the port puts out what comes from the network.
inline constexpr std::uint8_t kOutputPort = 0x80;
/// Ports that one reply describes.
inline constexpr std::size_t kPortsPerReply = 4;

[[nodiscard]] std::array<std::uint8_t, kPollSize> encode_poll(std::uint8_t flags = kReplyOnChange);
/// Nothing for any other datagram. What follows the 14 bytes (the fourth version may narrow the question to a
/// range) is left out.
[[nodiscard]] std::optional<ArtPoll> decode_poll(std::span<const std::uint8_t> datagram);

/// @param reply  numbers as the record says; identifier and opcode are filled in
[[nodiscard]] std::array<std::uint8_t, kPollReplySize> encode_poll_reply(ArtPollReply reply);
/// Nothing for any other datagram or one below 207 bytes. What a short reply lacks is zero, what follows 239
/// bytes is left out; texts are terminated.
[[nodiscard]] std::optional<ArtPollReply> decode_poll_reply(std::span<const std::uint8_t> datagram);

/// Port-addresses of the reply's output ports, ascending, each once. NumPorts is not looked at: PortTypes
/// says all, and some nodes count otherwise.
[[nodiscard]] std::vector<std::uint16_t> output_universes(const ArtPollReply& reply);

}  // namespace artnet
