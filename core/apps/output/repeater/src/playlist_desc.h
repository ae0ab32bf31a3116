#pragma once
// The engine's record of one loaded playlist.

#include "ondra/timing.h"
#include "playlist.h"
#include "playlist_loader.h"
#include "playlist_parser.h"

/**
 * Owned by the Repeater's list.
 *
 * The flags, position and due time are guarded by the Repeater's lock_: the main thread changes them holding
 * it as writer, the render worker, its only reader, while holding it as reader. The loader stands last so
 * that it is destroyed, and its thread joined, before the playlist that it fills.
 */
struct PlaylistDesc {
    /// The render worker plays it.
    bool active = false;
    /// A play was asked for and the render worker has not taken it up.
    bool play_requested = false;
    /// It must not be played any more: stopping, or at its end.
    bool finished = false;
    Playlist playlist;
    /// Index of the next packet to send.
    int position = 0;
    /// When that packet is due.
    ondra::Clock::time_point due_time{};
    PlaylistParser parser;
    PlaylistLoader loader;
};
