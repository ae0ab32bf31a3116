#pragma once
// What the node has seen, for programs and for people.

#include <chrono>
#include <cstdint>
#include <string>

#include "node.h"

namespace node {

/// What a report needs beside the node.
struct ReportFrame {
    /// Since the start.
    std::chrono::duration<double> time{0};
    std::uint64_t kernel_drops = 0;
};

/// One line with an object; docs/discovery.md lists its keys.
[[nodiscard]] std::string to_json(const Node& node, const ReportFrame& frame);
[[nodiscard]] std::string to_table(const Node& node, const ReportFrame& frame);

}  // namespace node
