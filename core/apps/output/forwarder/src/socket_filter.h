#pragma once
// A filter that lets no datagram into a socket.

namespace forwarder {

/**
 * Has the kernel throw away every datagram that arrives for `socket` from now on. What the socket holds can
 * still be read, and error reports still come. A refusal of the system changes nothing else.
 */
void refuse_datagrams(int socket) noexcept;

}  // namespace forwarder
