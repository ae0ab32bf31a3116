#pragma once
// The playlists that there are.

#include <string>

namespace ctl {

/// Prints a line a playlist of a data directory, or one JSON array. Returns the exit status.
[[nodiscard]] int list_playlists(const std::string& directory, bool json);

}  // namespace ctl
