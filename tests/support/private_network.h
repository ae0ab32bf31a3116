#pragma once
// A network namespace for a whole test program.

#include <initializer_list>
#include <string>

#include <sched.h>

#include "support/child_process.h"

namespace tests {

/**
 * Moves the process into a network of its own, in which every port is free; must come before any thread and
 * any socket, so best while a constant of the test program is initialised.
 *
 * @param commands  of iproute2; before them there is nothing but the loopback interface, which is up
 * Returns an empty text, or why that is impossible here.
 */
inline std::string enter_private_network(std::initializer_list<const char*> commands = {}) {
    try {
        child_process_detail::enter_namespaces(CLONE_NEWNET);
        ip("link set lo up");
        for (const char* const command : commands) {
            ip(command);
        }
    } catch (const Unavailable& reason) {
        return reason.what();
    }
    return "";
}

/// The same with an "eth0", 192.0.2.10, whose broadcast address is 192.0.2.255.
inline std::string enter_private_network_with_eth0() {
    return enter_private_network({"link add eth0 type veth peer name eth0peer",
                                  "address add 192.0.2.10/24 broadcast 192.0.2.255 dev eth0",
                                  "link set eth0 up"});
}

}  // namespace tests
