#pragma once
// A recording as the service's loader makes it: its packets with their times and frames.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class Playlist;
class PlaylistLoader;

namespace inspect {

/**
 * Loads one recording with the service's PlaylistLoader, on that one's thread, and waits for it.
 *
 * A frame is what the render worker sends at once: the packets up to and including one with a delay.
 */
class Timeline {
public:
    /**
     * @param fps, ppf  as in an effects file
     * @param waiting   called about every 10 ms while the loader works, with the number of packets so far,
     * and while they are gone through afterwards; may be empty
     */
    Timeline(const std::string& path, int fps, int ppf, const std::function<void(int)>& waiting);
    ~Timeline();
    Timeline(const Timeline&) = delete;
    Timeline& operator=(const Timeline&) = delete;

    [[nodiscard]] std::size_t packets() const noexcept { return frame_.size(); }
    [[nodiscard]] std::size_t frames() const noexcept { return start_.empty() ? 0 : start_.size() - 1; }
    [[nodiscard]] std::chrono::nanoseconds duration() const noexcept {
        return start_.empty() ? std::chrono::nanoseconds(0) : start_.back();
    }

    [[nodiscard]] int universe(std::size_t packet) const { return universe_[packet]; }
    /// Frame of a packet, also of one behind the last that was loaded (which is in the last frame).
    [[nodiscard]] std::size_t frame_of(std::size_t packet) const;
    /// Whether it is the last packet of its frame.
    [[nodiscard]] bool ends_frame(std::size_t packet) const {
        return packet + 1 == packets() || frame_[packet + 1] != frame_[packet];
    }
    [[nodiscard]] std::chrono::nanoseconds start(std::size_t frame) const { return start_[frame]; }
    [[nodiscard]] std::chrono::nanoseconds length(std::size_t frame) const {
        return start_[frame + 1] - start_[frame];
    }
    /// Channel levels of a packet; replaced by the next call.
    [[nodiscard]] const std::vector<unsigned char>& levels(std::size_t packet);

private:
    std::unique_ptr<Playlist> playlist_;
    std::unique_ptr<PlaylistLoader> loader_;
    std::vector<std::uint32_t> frame_;
    std::vector<int> universe_;
    /// Start of every frame, and behind them the end of the last one. Saturates.
    std::vector<std::chrono::nanoseconds> start_;
    std::vector<unsigned char> levels_;
};

}  // namespace inspect
