#pragma once
// Writes the sample show's description files and recordings.

#include <cstdint>
#include <filesystem>
#include <string>

#include "show_plan.h"

namespace demo {

/// The recording of one playlist, a multiple of 512 bytes long.
[[nodiscard]] std::string recording_of(const PlaylistPlan& plan);

/**
 * Writes playlists/ and recordings/ into `directory`, which is made when it is not there.
 *
 * @param port  of every output; the service takes 1024 to 65535
 * Throws std::system_error with the path when a file cannot be written.
 */
void write_sample_show(const std::filesystem::path& directory, std::uint16_t port);

}  // namespace demo
