#pragma once
// When the kernel begins to stamp what arrives.

namespace capture {

/**
 * Returns once the kernel stamps datagrams on their arrival, which it does from some time after the first
 * socket of the machine has asked for it: until then a stamp is that of the reading, later and out of order.
 *
 * The caller's socket must have asked (SO_TIMESTAMPNS), and keeps the kernel at it. Takes a fraction of a
 * millisecond, more on a busy machine, and gives up after 2 s or when the machine has no loopback interface:
 * the stamps then become good a little later.
 */
void await_kernel_stamps() noexcept;

}  // namespace capture
