#include "bus_show.h"

#include <chrono>
#include <filesystem>
#include <limits>

#include "support/recording.h"

using namespace std::chrono_literals;

namespace stress {

namespace {

using model::ControlledEffect;
using model::ControlledPlaylist;
using model::EffectsFile;

constexpr std::chrono::nanoseconds kFrame = 2ms;
constexpr std::size_t kBlock = 512;
constexpr int kLiveUniverse = 6;
/// Long enough that loading it takes a while.
constexpr int kLongShow = 3000;
constexpr int kShortShow = 30;
constexpr char kLongPath[] = "long.rec";
constexpr char kBrokenPath[] = "broken.rec";

std::vector<std::uint8_t> ramp(int channels, int step) {
    std::vector<std::uint8_t> levels;
    for (int channel = 0; channel < channels; ++channel) {
        levels.push_back(static_cast<std::uint8_t>(255 - channel * step % 200));
    }
    return levels;
}

ControlledEffect effect(const std::string& path, int port, const std::vector<int>& universes, int channels) {
    ControlledEffect made;
    made.path = path;
    for (const int universe : universes) {
        made.outputs.push_back({universe, "192.0.2." + std::to_string(universe), port});
        made.looks.push_back({universe, ramp(channels, universe)});
    }
    return made;
}

ControlledPlaylist forever(int id, const ControlledEffect& effect) {
    ControlledPlaylist playlist;
    playlist.id = id;
    playlist.effect = effect;
    return playlist;
}

ControlledPlaylist once(int id, const ControlledEffect& effect) {
    ControlledPlaylist playlist = forever(id, effect);
    playlist.loop = false;
    playlist.ends = true;
    return playlist;
}

ControlledPlaylist failing(int id, EffectsFile file) {
    ControlledPlaylist playlist;
    playlist.id = id;
    playlist.file = file;
    return playlist;
}

/// Plays nothing, for lack of packets.
ControlledPlaylist silent(int id, const std::string& path, int port) {
    ControlledEffect none = effect(path, port, {20}, 1);
    none.looks.clear();
    return forever(id, none);
}

/// All universes `frames` times, with the recording's own timing.
Recording frames_of(const ControlledEffect& effect, int frames, std::chrono::nanoseconds frame) {
    Recording recording;
    for (int i = 0; i < frames; ++i) {
        for (const ControlledEffect::Look& look : effect.looks) {
            recording.dmx(look.universe, look.levels);
        }
        recording.frame_delay(frame);
    }
    return recording;
}

Recording recording_of(const ControlledEffect& effect) {
    if (effect.path == kBrokenPath) {
        Recording recording = frames_of(effect, 4, kShortestTime / 4);
        const ControlledEffect::Look& look = effect.looks.front();
        return recording.dmx(look.universe, look.levels).cut_to(recording.size() - 5);
    }
    Recording recording = frames_of(effect, effect.path == kLongPath ? kLongShow : kShortShow, kFrame);
    // Whole blocks, so that nothing is found twice.
    return recording.fill_to((recording.size() + kBlock - 1) / kBlock * kBlock);
}

ShowEffect file_of(const ControlledEffect& effect) {
    ShowEffect file(effect.path);
    if (effect.fps != -1) {
        file.fps(effect.fps);
    }
    for (const ControlledEffect::Output& output : effect.outputs) {
        file.output(std::to_string(output.universe) + ":" + output.ip + ":" + std::to_string(output.port));
    }
    for (const auto& [universe, zone] : effect.zones) {
        file.zone(universe, zone);
    }
    return file;
}

}  // namespace

std::vector<std::uint8_t> live_frame() {
    return Recording{}.dmx(kLiveUniverse, ramp(8, kLiveUniverse)).frame_delay(kFrame).bytes();
}

std::vector<ControlledPlaylist> bus_show(int port, bool with_nodes) {
    std::vector<ControlledPlaylist> show;
    show.push_back(forever(1, effect("plain.rec", port, {1}, 8)));

    // 2 ms, too: the timing packets of the recording do not count.
    ControlledEffect fixed = effect("fixed.rec", port, {2}, 16);
    fixed.fps = 500;
    fixed.zones = {{2, 0}};
    show.push_back(forever(2, fixed));
    show.back().brightness = 60;

    ControlledEffect wide = effect(kLongPath, port, {3}, 512);
    wide.zones = {{3, 1}};
    show.push_back(forever(3, wide));
    show.back().speed_boost = 50;

    ControlledEffect ending = effect("ending.rec", port, {4}, 8);
    ending.zones = {{4, 2}};
    show.push_back(once(4, ending));
    // Its recording breaks off within a packet; what comes before it plays.
    show.push_back(once(kShortest, effect(kBrokenPath, port, {5}, 8)));

    ControlledEffect live = effect(kLivePath, port, {kLiveUniverse}, 8);
    live.zones = {{kLiveUniverse, 3}};
    show.push_back(once(6, live));
    show.back().ends = false;

    if (with_nodes) {
        ControlledEffect nodes = effect("nodes.rec", port, {kNodeUniverse}, 8);
        nodes.outputs.clear();
        show.push_back(forever(7, nodes));
    }

    // Ids at the end of the range and below zero are ids like any other. Zone 77 is never defined.
    ControlledEffect two = effect("two.rec", port, {8, 9}, 24);
    two.zones = {{8, 0}, {9, 77}};
    show.push_back(forever(std::numeric_limits<int>::max(), two));
    ControlledEffect muted = effect("muted.rec", port, {10}, 8);
    muted.zones = {{10, model::kMuted}};
    show.push_back(forever(-7, muted));

    show.push_back(failing(20, EffectsFile::Missing));
    show.push_back(failing(21, EffectsFile::NotAList));
    show.push_back(failing(22, EffectsFile::WithoutFps));
    show.push_back(failing(23, EffectsFile::Good));
    show.push_back(silent(24, "missing.rec", port));
    show.push_back(silent(25, "empty.rec", port));
    show.push_back(silent(26, "noise.rec", port));
    return show;
}

void write(ShowDirectory& directory, const std::vector<ControlledPlaylist>& show) {
    for (const ControlledPlaylist& playlist : show) {
        ShowPlaylist made(playlist.id);
        made.loop(playlist.loop).brightness(playlist.brightness).speed_boost(playlist.speed_boost);
        if (playlist.effect) {
            made.effect(file_of(*playlist.effect));
        }
        directory.playlist(made);
        const std::string effects = "playlists/" + std::to_string(playlist.id) + ".json";
        if (playlist.file == EffectsFile::Missing) {
            std::filesystem::remove(directory.path(effects));
        } else if (playlist.file == EffectsFile::NotAList) {
            directory.file(effects, "{}");
        } else if (playlist.file == EffectsFile::WithoutFps) {
            directory.file(effects, R"([{"path": "plain.rec", "outputs": []}])");
        }
        if (!playlist.effect || playlist.effect->looks.empty() || playlist.effect->path == kLivePath) {
            continue;
        }
        directory.recording(playlist.effect->path, recording_of(*playlist.effect).bytes());
    }
    directory.recording("empty.rec", {});
    directory.recording("noise.rec", std::vector<std::uint8_t>(3 * kBlock, 0x41));
}

}  // namespace stress
