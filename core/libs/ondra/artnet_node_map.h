#pragma once
// Which Art-Net nodes listen to which universe, kept up to date from the discovery service's messages.

#include <string>
#include <unordered_map>
#include <vector>

#include <QString>

namespace ondra {

/// One node: its IPv4 address exactly as announced, and its UDP port.
struct ArtnetNode {
    std::string ip;
    int port = 0;

    bool operator==(const ArtnetNode& other) const = default;
    /// By text of the address, bytes compared as unsigned; then by port. On purpose not the numeric order.
    bool operator<(const ArtnetNode& other) const;
};

/// Universe to its nodes, each list sorted; a node announced twice is listed twice.
using ArtnetNodeMap = std::unordered_map<int, std::vector<ArtnetNode>>;

/**
 * Applies one discovery message, record by record: "state:universe:ip:port" separated by ";".
 *
 * State "1" adds the node without looking for an equal one, any other text removes one equal node. Malformed
 * records are skipped. Caller guards `map`.
 */
void update_artnet_node_map(const QString& message, ArtnetNodeMap& map);

}  // namespace ondra
