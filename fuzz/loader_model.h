#pragma once
// What the loader makes of a recording, told a second time from the parser's model.

#include <vector>

#include "playlist.h"
#include "target.h"

namespace fuzz {

struct LoadedEffect {
    std::vector<Playlist::Packet> packets;
    /// False when the recording ends the load.
    bool whole = false;
};

[[nodiscard]] LoadedEffect expected_load(Input recording, const Playlist::Effect& effect);

}  // namespace fuzz
