#pragma once
// How the timing packets of a recording become playing time.

#include <chrono>

/// What the last packet of a recording with its own timing waits when it is played, whatever a timing packet
/// says: nothing follows that could tell when the next frame comes.
inline constexpr std::chrono::milliseconds kLastFrameTime{30};
