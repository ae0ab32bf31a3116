#pragma once
// What a socket takes away from others that have its port.

#include <string>
#include <vector>

namespace posix {

/**
 * Who is left without unicast by a UDP socket that has just been bound, a line each:
 * "NAME (process 812) shares *:6454; unicast that came to it comes here now".
 *
 * Of sockets that share a port, the one with the more specific address gets the unicast datagrams, of equals
 * the last to bind. Empty when there are none, or when the system's table of sockets cannot be read.
 *
 * @param descriptor  a bound socket; one that is not of IPv4, such as a packet socket, robs nobody
 */
[[nodiscard]] std::vector<std::string> robbed_of_unicast(int descriptor);

}  // namespace posix
