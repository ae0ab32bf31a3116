#include "nodes.h"

#include <set>

#include "names.h"

namespace ctl {

ondra::ArtnetNodeMap present_nodes(const Bus& bus) {
    const auto records =
        bus.ask<QString>({kDiscovery, kRoot, kDiscoveryInterface, QStringLiteral("list_nodes")});
    ondra::ArtnetNodeMap nodes;
    ondra::update_artnet_node_map(records, nodes);
    return nodes;
}

std::size_t count_nodes(const ondra::ArtnetNodeMap& nodes) {
    std::set<ondra::ArtnetNode> each;
    for (const auto& [universe, list] : nodes) {
        each.insert(list.begin(), list.end());
    }
    return each.size();
}

}  // namespace ctl
