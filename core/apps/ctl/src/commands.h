#pragma once
// The commands that are a call or two to the service.

#include <optional>
#include <string>
#include <vector>

#include "bus.h"

namespace ctl {

// All of them throw what Bus throws, and cli::Failure, with the likely causes, when the service refuses.

void play(Bus& bus, int playlist);

/**
 * Plays and waits until the service says that the playlist has ended.
 *
 * @param milliseconds  0: without end
 * Returns the exit status: good, or 128 and the number of the signal that ended the waiting.
 */
[[nodiscard]] int play_and_wait(const BusSettings& settings, int playlist, int milliseconds);

void pause(Bus& bus, int playlist);

/// What `zones` can do with a file.
enum class ZoneChange { Init, Add, Update };

/// Hands the zones of a file over; with Add and Update one by one, and the first refused ends it.
void change_zones(const BusSettings& settings, ZoneChange change, const std::string& path);
void remove_zones(Bus& bus, const std::vector<int>& zones);
void clear_zones(Bus& bus);

/// Sets the level if one is given, else prints it.
void log_level(Bus& bus, std::optional<int> level, bool json);

}  // namespace ctl
