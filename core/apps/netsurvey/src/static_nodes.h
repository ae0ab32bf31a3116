#pragma once
// The file of devices that answer no polls.

#include <string>
#include <vector>

#include "node_table.h"

namespace netsurvey {

/**
 * Reads a JSON array of objects: "address" (IPv4), "universes" (an array of numbers and of ranges such as
 * "0-3"), and if wanted "port" (6454) and "name".
 *
 * Throws cli::Failure, naming file, element and what was expected, when anything in it is wrong: a device
 * that is left out silently stays dark.
 */
[[nodiscard]] std::vector<StaticNode> read_static_nodes(const std::string& path);

}  // namespace netsurvey
