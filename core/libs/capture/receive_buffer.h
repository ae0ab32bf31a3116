#pragma once
// A socket's receive buffer: as large as the system allows, and what to do when that is little.

#include <string>

namespace capture {

/// Widens the buffer as far as allowed; returns its bytes as the kernel counts them, overhead included.
int widen_receive_buffer(int socket) noexcept;

/// Datagrams of 530 bytes that a buffer of `bytes` holds.
[[nodiscard]] int datagrams_in(int bytes) noexcept;

/// What to do about a buffer of `bytes`; empty when a burst of 2,000 datagrams fits.
[[nodiscard]] std::string receive_buffer_advice(int bytes);

}  // namespace capture
