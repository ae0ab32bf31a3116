#pragma once
// Packet types of an Art-Net recording, as they stand in the OpCode field.

#include <cstdint>
#include <string_view>

namespace opcode {

inline constexpr std::uint16_t kPoll = 0x2000;
inline constexpr std::uint16_t kPollReply = 0x2100;
inline constexpr std::uint16_t kDmx = 0x5000;
/// Ends a frame on the wire. Means nothing to playback, which passes over it in a recording.
inline constexpr std::uint16_t kSync = 0x5200;
/// Maker-defined: time to the next frame in nanoseconds.
inline constexpr std::uint16_t kOemVfpsNs = 0x00FE;
/// Maker-defined: time to the next frame in milliseconds.
inline constexpr std::uint16_t kOemVfps = 0x00FF;
inline constexpr std::uint16_t kTrigger = 0x9900;

/// What a packet type is called, also one that playback passes over: "ArtDmx", "timing-ns". Empty for one
/// that the protocol does not know.
[[nodiscard]] std::string_view name(std::uint16_t code) noexcept;

}  // namespace opcode
