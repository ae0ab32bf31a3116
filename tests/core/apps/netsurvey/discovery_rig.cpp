#include "discovery_rig.h"

#include "support/private_network.h"

namespace {

/// A network with a broadcast address, the discovery's address in it, and two for nodes.
const std::string kObstacle =
    tests::enter_private_network({"link add near type veth peer name far", "addr add 10.77.0.1/24 dev near",
                                  "addr add 10.77.0.2/24 dev near", "addr add 10.77.0.3/24 dev near",
                                  "link set near up", "link set far up"});

}  // namespace

const std::string& network_obstacle() {
    return kObstacle;
}
