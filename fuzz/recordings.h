#pragma once
// Recordings as seeds, for the targets that read them.

#include <string>
#include <vector>

#include "target.h"

namespace fuzz {

/// Small recordings of every kind, whole, damaged and shifted; each after `prefix`.
[[nodiscard]] std::vector<Seed> recording_seeds(const std::string& prefix);

inline constexpr const char* kRecordingDictionary =
    "identifier=\"Art-Net\\x00\"\n"
    "dmx=\"Art-Net\\x00\\x00\\x50\"\n"
    "ms=\"Art-Net\\x00\\xff\\x00\"\n"
    "ns=\"Art-Net\\x00\\xfe\\x00\"\n"
    "poll=\"Art-Net\\x00\\x00\\x20\"\n"
    "pollreply=\"Art-Net\\x00\\x00\\x21\"\n"
    "trigger=\"Art-Net\\x00\\x00\\x99\"\n"
    "full=\"\\x02\\x00\"\n"
    "oversized=\"\\x02\\x01\"\n";

}  // namespace fuzz
