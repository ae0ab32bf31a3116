#pragma once
// The nodes that the discovery knows.

#include "bus.h"
#include "ondra/artnet_node_map.h"

namespace ctl {

/// Universe to its nodes, as the discovery lists them now. Throws what Bus throws.
[[nodiscard]] ondra::ArtnetNodeMap present_nodes(const Bus& bus);

/// Addresses with ports, each once.
[[nodiscard]] std::size_t count_nodes(const ondra::ArtnetNodeMap& nodes);

}  // namespace ctl
