#pragma once
// Zones as a file holds them.

#include <string>
#include <vector>

#include <QByteArray>

#include "zone.h"

namespace zones {

/**
 * Reads a JSON array of {"id", "priority", "channels"}.
 *
 * @param path  "-": standard input
 * Throws cli::Failure with file, line, element (counted from 1) and what was expected. Stricter than the
 * service, which takes any channel and keeps the last of several zones with one id: here both are errors,
 * since nobody means them.
 */
[[nodiscard]] std::vector<Zone> read_zone_file(const std::string& path);

/// The same of a text. @param name  of the file, for errors
[[nodiscard]] std::vector<Zone> parse_zones(const QByteArray& text, const std::string& name);

}  // namespace zones
