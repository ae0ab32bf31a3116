#pragma once
// How much of a packet has to be sent, for --trim.

#include <cstddef>
#include <span>

namespace forwarder {

/**
 * Bytes of `packet` that carry something: the header and Length channels of an ArtDmx packet with a Length of
 * 1 to 512; all of it for any other packet.
 *
 * An odd Length takes the byte behind it along, since the protocol document wants an even number of channels
 * and some receivers drop what has not. The field itself stays as it is: trimming only cuts.
 */
[[nodiscard]] std::size_t trimmed_size(std::span<const unsigned char> packet) noexcept;

}  // namespace forwarder
