#pragma once
// What each step of the demo must bring, worked out from the show's parameters alone.

#include <array>
#include <bitset>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "show_plan.h"

namespace demo {

using Levels = std::array<std::uint8_t, kChannels>;
using Channels = std::bitset<kChannels>;

/// A playlist as it plays during a step.
struct Playing {
    int playlist;
    /// Frames to be seen, per destination.
    int frames;
    std::vector<std::string> destinations{};
    /// Percent.
    int brightness = 100;
    /// Percent, 0 to 100.
    int speed_boost = 0;
};

/// Packets of one playlist during one step.
struct StreamExpectation {
    int playlist = 0;
    /// Per destination.
    int frames = 0;
    std::vector<std::string> destinations{};
    /// Frames per second.
    double rate = 0;
    /// A short stretch says little about a rate; then it is only shown.
    bool rate_judged = false;
    /// Highest level within the channels that the playlist owns.
    int peak = 0;
    /// Channels that it owns, in the order of its universes.
    std::vector<Channels> owned{};
    /// What it writes, brightness applied: at frame * universes + index of the universe.
    std::vector<Levels> levels{};

    /// All packets to be seen.
    [[nodiscard]] int packets() const;
};

/// One step of the demo.
struct StepExpectation {
    /// Names the call that the step makes.
    std::string name{};
    /// In the summary.
    std::string label{};
    std::vector<StreamExpectation> streams{};
    /// Where packets may go during the step, expected or not; an empty address: none that can be forwarded.
    std::vector<std::string> destinations{};
    /// Shows a single row: the step is one of several alike.
    bool brief = false;
    /// How long nothing may arrive, when there are no streams.
    std::chrono::milliseconds silence{0};
};

/// Frames per second of a playlist; over whole rounds when it loops. `speed_boost` is 0 to 100 percent.
[[nodiscard]] double expected_rate(const PlaylistPlan& plan, int speed_boost);

/// Channels of `universe` that belong to `plan` while all of `loaded` hold their zones.
[[nodiscard]] Channels owned_channels(const PlaylistPlan& plan, int universe, const std::vector<int>& loaded);

/// @param loaded  playlists that hold their zones during the step, paused ones included
[[nodiscard]] StreamExpectation expected_stream(const Playing& playing, const std::vector<int>& loaded);

/**
 * All steps in their order.
 *
 * @param broadcast  broadcast address of the wired interface; empty when there is none
 */
[[nodiscard]] std::vector<StepExpectation> expected_steps(const std::string& broadcast);

}  // namespace demo
