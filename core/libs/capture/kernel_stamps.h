#pragma once
// The kernel's receive time stamps, from the first datagram on.

namespace capture {

/**
 * Asks for the stamps of what arrives at a socket that is not bound yet, and returns once the kernel gives
 * them, which it does from some time after the first socket of the machine has asked: until then a stamp is
 * that of the reading, later and out of order.
 *
 * The socket keeps the kernel at it. Takes a fraction of a millisecond, more on a busy machine, and gives up
 * waiting after 2 s or when the machine has no loopback interface: the stamps then become good a little
 * later. False, with errno, when the system refuses.
 */
[[nodiscard]] bool begin_stamps(int descriptor) noexcept;

}  // namespace capture
