#pragma once
// Packet types of an Art-Net recording, as they stand in the OpCode field.

#include <cstdint>

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

}  // namespace opcode
