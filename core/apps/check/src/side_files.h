#pragma once
// What the data directory does not say: the zones that control software sets, the nodes of the network.

#include <set>
#include <string>

namespace datacheck {

/**
 * Ids of the zones in a file: an array of {"id", "priority", "channels"}, as cuewrightctl takes it, and no
 * laxer.
 *
 * Throws cli::Failure, naming file and place, when it is not that.
 */
[[nodiscard]] std::set<int> read_zones(const std::string& path);

/**
 * Universes that nodes listen to.
 *
 * The file is what the discovery takes as static nodes or lists as JSON: an array of objects with
 * "universes", each a number or a range such as "0-3"; or the discovery's records, "state:universe:ip:port",
 * separated by semicolons or line ends and applied in order. Throws cli::Failure, naming file and place, when
 * it cannot be read or holds neither.
 */
[[nodiscard]] std::set<int> read_nodes(const std::string& path);

}  // namespace datacheck
