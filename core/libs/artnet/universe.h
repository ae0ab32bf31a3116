#pragma once
// Byte order, and the parts of a port-address as nodes are programmed with them.

/// Exchanges the two bytes of a 16-bit value.
[[nodiscard]] unsigned short swap_word(unsigned short word) noexcept;

/**
 * Splits a universe, counted from 1, into switch, sub-net and net.
 *
 * Bit 7 is set in all three on purpose: it tells a node to take the value over.
 */
void universe_to_addr(unsigned short universe, unsigned char& sw, unsigned char& sub,
                      unsigned char& net) noexcept;

/**
 * Joins switch, sub-net and net to a universe counted from 1.
 *
 * The inputs are not masked, on purpose: values that carry bit 7 do not lead back to the universe that
 * universe_to_addr() made them from.
 */
[[nodiscard]] unsigned short addr_to_universe(unsigned char sw, unsigned char sub,
                                              unsigned char net) noexcept;
