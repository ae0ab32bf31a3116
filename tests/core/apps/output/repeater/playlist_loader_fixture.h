#pragma once
// A playlist with its loader and a data root, for the tests of PlaylistLoader.

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "playlist_loader.h"
#include "support/captured_log.h"
#include "support/eventually.h"
#include "support/playlist_access.h"
#include "support/recording.h"
#include "support/show_directory.h"

using Delays = std::vector<long long>;

/// An effect that plays with the timing of its recording.
inline Playlist::Effect own_timing(const char* path) {
    Playlist::Effect effect;
    effect.path = QString::fromLatin1(path);
    return effect;
}

class PlaylistLoaderFixture : public testing::Test {
protected:
    PlaylistLoaderFixture() { playlist_.set_root_dir(show_.root()); }

    void load(const std::vector<Playlist::Effect>& effects) {
        PlaylistAccess::effects(playlist_) = effects;
        loader_.start(playlist_);
        loader_.wait_ready();
        ASSERT_TRUE(eventually([this] { return loader_.done(); }));
    }
    void load(const Recording& recording, Playlist::Effect effect) {
        show_.recording(effect.path.toStdString(), recording.bytes());
        load({std::move(effect)});
    }
    [[nodiscard]] Playlist::Packet packet(int index) const {
        Playlist::Packet result;
        EXPECT_TRUE(playlist_.packet(index, result)) << index;
        return result;
    }
    [[nodiscard]] Delays delays() const {
        Delays result;
        for (int index = 0; index < playlist_.packets_loaded(); ++index) {
            result.push_back(packet(index).delay.count());
        }
        return result;
    }
    [[nodiscard]] std::string path(const char* relative) const { return show_.path(relative); }
    [[nodiscard]] int loaded_effects() const { return PlaylistAccess::loaded_effects(playlist_); }

    CapturedLog log_;
    ShowDirectory show_;
    Playlist playlist_;
    PlaylistLoader loader_;
};
