#pragma once
// A data directory in a temporary place: description files, effects files and recordings, for tests.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QTemporaryDir>

/// One effect of an effects file. Without fps() it keeps its recording's own timing.
class ShowEffect {
public:
    /// @param path  recording, relative to the data directory
    explicit ShowEffect(const std::string& path);
    ShowEffect& fps(double frames_per_second);
    ShowEffect& ppf(double packets_per_frame);
    ShowEffect& sort(double key);
    ShowEffect& name(const std::string& text);
    /// One output string, "universe:ip:port".
    ShowEffect& output(const std::string& text);
    /// Puts a universe into a zone.
    ShowEffect& zone(int universe, int zone_id);

    [[nodiscard]] QJsonObject json() const;

private:
    QJsonObject fields_;
    QJsonArray outputs_;
    QJsonArray universes_;
};

/// One playlist: its entry in the description file, and its effects file.
class ShowPlaylist {
public:
    explicit ShowPlaylist(int id);
    ShowPlaylist& loop(bool on);
    ShowPlaylist& brightness(double percent);
    ShowPlaylist& speed_boost(double percent);
    ShowPlaylist& effect(const ShowEffect& effect);

    [[nodiscard]] int id() const { return id_; }
    [[nodiscard]] const QJsonObject& desc() const { return desc_; }
    [[nodiscard]] const QJsonArray& effects() const { return effects_; }

private:
    int id_;
    QJsonObject desc_;
    QJsonArray effects_;
};

/**
 * A data directory, removed with the object. For example:
 *
 *     ShowDirectory show;
 *     show.recording("red.rec", Recording{}.dmx(0, {255}).frame_delay(40ms).bytes())
 *         .playlist(ShowPlaylist(1).loop(false).effect(ShowEffect("red.rec").output("0:192.0.2.1:6454")));
 *
 * Everything is on disk when the call returns. A file that cannot be written ends the test with an exception.
 */
class ShowDirectory {
public:
    /// Description file, relative to the data directory.
    static constexpr const char* kDescriptionPath = "playlists/playlists.json";

    ShowDirectory();
    ShowDirectory(const ShowDirectory&) = delete;
    ShowDirectory& operator=(const ShowDirectory&) = delete;

    /// Adds a playlist to the description file and writes its effects file.
    ShowDirectory& playlist(const ShowPlaylist& playlist);
    /// Writes a recording; `path` is relative to the data directory.
    ShowDirectory& recording(const std::string& path, const std::vector<std::uint8_t>& bytes);
    /// Writes any file; `path` is relative to the data directory. Missing folders are made.
    ShowDirectory& file(const std::string& path, std::string_view content);

    /// The data directory.
    [[nodiscard]] QString root() const { return directory_.path(); }
    /// A path below it.
    [[nodiscard]] std::string path(const std::string& relative) const;

private:
    QTemporaryDir directory_;
    QJsonArray descs_;
};
