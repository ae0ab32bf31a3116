#pragma once
// The show of the stress run: playlists of every kind, with frames of 2 ms or less. Only the last one of a
// recording with its own timing stands for 30 ms, as the loader has it, so once a loop a call may wait as
// long.

#include <chrono>
#include <cstdint>
#include <vector>

#include "control_model.h"
#include "support/show_directory.h"

namespace stress {

/// Universe whose frames go wherever no output is named: to a discovered node or to the broadcast address.
inline constexpr int kNodeUniverse = 7;

/// Playlist that comes to its end soonest, and how long it plays.
inline constexpr int kShortest = 5;
inline constexpr std::chrono::milliseconds kShortestTime{4};

/// Recording that LiveRecording feeds; relative to the data directory.
inline constexpr char kLivePath[] = "live.rec";

/// One frame of the live recording, complete with its delay.
[[nodiscard]] std::vector<std::uint8_t> live_frame();

/**
 * What the description files say, for the model: some that play for ever, some that end, one whose recording
 * never does, and one for each way of failing.
 *
 * Each has universes of its own, and all its packets for a universe are alike, so that every frame is known.
 * @param port        where explicit outputs go
 * @param with_nodes  with a playlist without outputs
 */
[[nodiscard]] std::vector<model::ControlledPlaylist> bus_show(int port, bool with_nodes);

/// Writes the files of that show, but for the live recording.
void write(ShowDirectory& directory, const std::vector<model::ControlledPlaylist>& show);

}  // namespace stress
