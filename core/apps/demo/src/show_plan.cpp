#include "show_plan.h"

#include <algorithm>
#include <array>
#include <cassert>

namespace demo {

namespace {

using namespace std::chrono_literals;

/// Channels that the terminal shows; the chase repeats itself after as many.
constexpr int kPatternWidth = 32;
constexpr int kFull = 255;

/**
 * A letter A right before a packet hides that packet from the parser. A dark last channel keeps the byte
 * before every packet off that letter.
 */
constexpr bool is_last(int channel) {
    return channel == kChannels - 1;
}

/// A comet of eight channels that moves up by one channel a frame, eight channels further in each universe.
std::uint8_t chase_level(int universe, int frame, int channel) {
    const int head = (frame + 8 * universe) % kPatternWidth;
    const int behind = (head - channel % kPatternWidth + kPatternWidth) % kPatternWidth;
    return static_cast<std::uint8_t>(is_last(channel) || behind >= 8 ? 0 : kFull - 32 * behind);
}

/// The zone swells and fades as one block. Every other channel is at full, which the zone keeps from sight.
std::uint8_t pulse_level(int /*universe*/, int frame, int channel) {
    const bool in_zone = channel >= 8 && channel <= 23;
    const int swell = frame < 20 ? frame : 40 - frame;
    return static_cast<std::uint8_t>(is_last(channel) ? 0 : in_zone ? 200 - 6 * (20 - swell) : kFull);
}

/// A bar of light that empties from 32 channels to none.
std::uint8_t fade_level(int /*universe*/, int frame, int channel) {
    return channel < kPatternWidth * (74 - frame) / 74 ? kFull : 0;
}

/// Groups of four channels that take turns.
std::uint8_t house_level(int /*universe*/, int frame, int channel) {
    return static_cast<std::uint8_t>(is_last(channel) ? 0 : (channel / 4 + frame / 5) % 2 == 0 ? 200 : 40);
}

constexpr std::array<ZonePlan, 2> kZones{{{1, 1, 0, kChannels - 1}, {2, 5, 8, 23}}};

}  // namespace

std::span<const PlaylistPlan> playlists() {
    static const std::vector<PlaylistPlan> all{
        {kChase,
         "chase.art",
         {0, 1, 2, 3},
         192,
         Timing::Nanoseconds,
         25ms,
         true,
         1,
         kStageOutput,
         1,
         chase_level},
        {kPulse, "pulse.art", {0, 1}, 40, Timing::FixedRate, 50ms, true, 2, kStageOutput, 193, pulse_level},
        {kFade, "fade.art", {4}, 75, Timing::Milliseconds, 40ms, false, -1, kFadeOutput, 1, fade_level},
        {kHouse, "house.art", {5}, 60, Timing::Milliseconds, 50ms, true, -1, "", 1, house_level}};
    return all;
}

std::span<const ZonePlan> zones() {
    return kZones;
}

const PlaylistPlan& playlist(int id) {
    const auto found = std::ranges::find(playlists(), id, &PlaylistPlan::id);
    assert(found != playlists().end());
    return *found;
}

const ZonePlan* zone(int id) {
    const auto found = std::ranges::find(kZones, id, &ZonePlan::id);
    return found == kZones.end() ? nullptr : &*found;
}

}  // namespace demo
