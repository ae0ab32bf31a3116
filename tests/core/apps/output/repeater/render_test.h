#pragma once
// Fixture of the render worker's tests.

#include <chrono>
#include <vector>

#include "support/engine_test.h"

class RenderTest : public EngineTest {
protected:
    RenderTest() { start(); }

    /// Plays `recording` with its own timing, on any universe, at 192.0.2.1.
    void add(int id, const Recording& recording, bool loop = true) {
        const std::string path = std::to_string(id) + ".rec";
        show.recording(path, recording.bytes());
        show.playlist(ShowPlaylist(id).loop(loop).effect(ShowEffect(path).output("*:192.0.2.1:6454")));
    }
    /// Loads playlists and leaves them paused at their start, so that they can be taken up together.
    void load_paused(const std::vector<int>& ids) {
        for (const int id : ids) {
            ASSERT_TRUE(RepeaterAccess::load_playlist(engine(), id));
            ASSERT_TRUE(wait_until_loaded(id));
        }
    }
    [[nodiscard]] static std::vector<int> levels(std::size_t count) {
        std::vector<int> result;
        for (const SentDatagram& sent : FakeUdpSocket::sent()) {
            if (result.size() < count) {
                result.push_back(sent.channel(0));
            }
        }
        return result;
    }
    /// Moments of the first `count` datagrams, from the first on.
    [[nodiscard]] static std::vector<std::chrono::nanoseconds> moments(std::size_t count) {
        std::vector<std::chrono::nanoseconds> result;
        const std::vector<SentDatagram> all = FakeUdpSocket::sent();
        for (std::size_t index = 0; index < count; ++index) {
            result.push_back(all.at(index).time - all.front().time);
        }
        return result;
    }
    using Moments = std::vector<std::chrono::nanoseconds>;
};
