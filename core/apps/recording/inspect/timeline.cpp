#include "inspect/timeline.h"

#include <algorithm>
#include <filesystem>
#include <span>
#include <thread>

#include <QFile>

#include "artnet/records.h"
#include "ondra/timing.h"
#include "playlist.h"
#include "playlist_loader.h"

using namespace std::chrono_literals;

namespace inspect {

namespace {

constexpr auto kPollInterval = 10ms;
/// Packets gone through between two words to who waits.
constexpr int kPacketsPerCall = 4096;
constexpr int kNotGiven = -1;

Playlist::Effect make_effect(const std::string& name, int fps, int ppf) {
    Playlist::Effect effect;
    effect.path = QFile::decodeName(name.c_str());
    effect.fps = fps;
    effect.ppf = ppf;
    // As the description files' parser sets them.
    effect.fixed_fps = fps != kNotGiven;
    effect.auto_ppf = effect.fixed_fps && ppf == kNotGiven;
    return effect;
}

}  // namespace

Timeline::Timeline(const std::string& path, int fps, int ppf, const std::function<void(int)>& waiting)
    : playlist_(std::make_unique<Playlist>()), loader_(std::make_unique<PlaylistLoader>()) {
    // The loader looks for recordings below a root directory.
    const std::filesystem::path whole = std::filesystem::absolute(path);
    playlist_->set_root_dir(QFile::decodeName(whole.parent_path().c_str()));
    playlist_->add_effect(make_effect(whole.filename().string(), fps, ppf));
    loader_->start(*playlist_);
    // Short recordings are there at once; long ones need no more than a look now and then.
    for (auto pause = std::chrono::milliseconds(1); !loader_->done();
         pause = std::min<std::chrono::milliseconds>(2 * pause, kPollInterval)) {
        std::this_thread::sleep_for(pause);
        if (waiting) {
            waiting(playlist_->packets_loaded());
        }
    }

    const int count = playlist_->packets_loaded();
    Playlist::Packet packet;
    ondra::Clock::duration time{0};
    for (int index = 0; index < count && playlist_->packet(index, packet); ++index) {
        if (start_.empty()) {
            start_.emplace_back(time);
        }
        frame_.push_back(static_cast<std::uint32_t>(start_.size() - 1));
        if (waiting && index % kPacketsPerCall == 0) {
            waiting(count);
        }
        universe_.push_back(packet.universe);
        if (packet.delay > 0ns) {
            time = ondra::saturating_add(time, packet.delay);
            start_.emplace_back(time);
        }
    }
    // A load that ended with an error leaves a frame without an end.
    if (!frame_.empty() && frame_.back() == start_.size() - 1) {
        start_.emplace_back(time);
    }
}

Timeline::~Timeline() = default;

std::size_t Timeline::frame_of(std::size_t packet) const {
    if (frame_.empty()) {
        return 0;
    }
    return packet < frame_.size() ? frame_[packet] : frame_.back();
}

const std::vector<unsigned char>& Timeline::levels(std::size_t packet) {
    Playlist::Packet stored;
    levels_.clear();
    if (playlist_->packet(static_cast<int>(packet), stored) && stored.data.size() > kDmxHeaderSize) {
        const std::span<const unsigned char> levels = std::span(stored.data).subspan(kDmxHeaderSize);
        levels_.assign(levels.begin(), levels.end());
    }
    return levels_;
}

}  // namespace inspect
