#pragma once
// The list of nodes, for programs and for people.

#include <span>
#include <string>

#include <QJsonArray>

#include "node_table.h"

namespace netsurvey {

/// An array with an object a node; docs/discovery.md lists its keys.
[[nodiscard]] QJsonArray to_json(std::span<const NodeView> nodes);

/// A table of what to_json() gives; one line that says so when there is no node.
[[nodiscard]] std::string to_table(const QJsonArray& nodes);

}  // namespace netsurvey
