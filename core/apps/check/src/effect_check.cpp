#include "effect_check.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <utility>

namespace datacheck {

namespace {

/// What a DMX line of 512 channels carries.
constexpr int kMostFps = 44;
constexpr int kNotGiven = -1;

}  // namespace

void check_effect(const CheckedEffect& checked, const std::string& file, DataFindings& findings) {
    const Playlist::Effect& effect = checked.effect;
    const auto warn = [&](const char* kind, const std::string& key, const std::string& text) {
        findings.add({.kind = kind,
                      .level = Level::Warning,
                      .file = file,
                      .element = checked.element + "." + key,
                      .text = text});
    };
    const std::string fps = std::to_string(effect.fps);
    if (effect.fps > kMostFps) {
        warn("fps-high", "fps",
             fps + " frames a second are more than the 44 that a full DMX line carries; use 44 or less");
    } else if (effect.fixed_fps && effect.fps <= 0) {
        warn("fps-low", "fps",
             "a rate of " + fps +
                 " plays one frame a second; use 1 to 44, or -1 for the recording's own timing");
    }
    if (effect.ppf != kNotGiven) {
        if (!effect.fixed_fps) {
            warn("ppf-unused", "ppf",
                 "packets per frame have no meaning with the recording's own timing (\"fps\" -1); remove it");
        } else if (effect.ppf == 0) {
            warn(
                "ppf-low", "ppf",
                "with 0 packets per frame no frame ever ends, and all packets are sent at once; remove it to "
                "have the number found");
        } else if (effect.ppf < 0) {
            warn("ppf-low", "ppf",
                 std::to_string(effect.ppf) + " is no number of packets; remove it to have the number found");
        }
    }
    // In the order of the universes, since the map has none.
    std::map<int, std::map<std::pair<std::string, int>, int>> counts;
    for (const auto& [universe, addresses] : effect.outputs) {
        for (const Playlist::Address& address : addresses) {
            ++counts[universe][{address.ip, address.port}];
        }
    }
    for (const auto& [universe, addresses] : counts) {
        for (const auto& [address, count] : addresses) {
            if (count > 1) {
                warn(
                    "output-twice", "outputs",
                    address.first + ":" + std::to_string(address.second) + " is given " +
                        std::to_string(count) + " times for " +
                        (universe == Playlist::kAllUniverses ? "*" : "universe " + std::to_string(universe)) +
                        " and gets every frame as often; leave one");
            }
        }
    }
}

}  // namespace datacheck
