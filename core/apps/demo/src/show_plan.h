#pragma once
// The sample show's parameters: what its playlists play, where to, and how fast.

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace demo {

inline constexpr int kChannels = 512;
/// Last packet of a recording that brings its own timing: the service waits this long after it.
inline constexpr std::chrono::milliseconds kRecordingEndDelay{30};

/// How a playlist's recording says when its frames are due.
enum class Timing {
    Nanoseconds,   ///< by nanosecond timing packets
    Milliseconds,  ///< by millisecond timing packets
    FixedRate      ///< not at all: the effects file gives frames per second
};

/// One playlist of the show; it has one effect with one recording.
struct PlaylistPlan {
    int id;
    const char* recording;
    /// Art-Net port-addresses, in the order of their packets within a frame.
    std::vector<int> universes;
    int frames;
    Timing timing;
    std::chrono::nanoseconds frame_time;
    bool loop;
    /// -1: none.
    int zone;
    /// Dotted address of the only output; empty: none, so packets go to nodes or to the broadcast address.
    std::string output;
    /// Sequence number of the first frame's packets, 1 to 255; the numbers tell received frames apart.
    int first_sequence;
    /// Level of channel 0 to 511 as recorded.
    std::uint8_t (*level)(int universe, int frame, int channel);
};

/// Zone of the show: channels `first` to `last`.
struct ZonePlan {
    int id;
    int priority;
    int first;
    int last;
};

inline constexpr int kChase = 1;
inline constexpr int kPulse = 2;
inline constexpr int kFade = 3;
inline constexpr int kHouse = 4;

/// Reserved for documentation, so no real node is ever meant.
inline constexpr const char* kStageOutput = "192.0.2.10";
inline constexpr const char* kFadeOutput = "192.0.2.11";
inline constexpr const char* kFirstNode = "192.0.2.21";
inline constexpr const char* kSecondNode = "192.0.2.22";

[[nodiscard]] std::span<const PlaylistPlan> playlists();
[[nodiscard]] std::span<const ZonePlan> zones();
/// The playlist with that id, which must exist.
[[nodiscard]] const PlaylistPlan& playlist(int id);
/// The zone with that id; null when there is none.
[[nodiscard]] const ZonePlan* zone(int id);

}  // namespace demo
