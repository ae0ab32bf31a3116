#pragma once
// Reads the JSON files that say what a playlist is.

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include "playlist.h"
#include "playlist_parser_observer.h"

/**
 * Fills a Playlist from the description file of the device and from the playlist's own effects file.
 *
 * Holds no state but whom to tell, and takes no lock: it runs on the main thread, before the playlist is
 * visible to any other. A missing file or a missing required field is logged and thrown (exceptions.h); an
 * output or a universe that cannot be used is logged and skipped.
 */
class PlaylistParser final {
public:
    PlaylistParser() = default;
    /// @param observer  hears what is not taken as it stands; outlives the parser
    explicit PlaylistParser(PlaylistParserObserver& observer) : observer_(&observer) {}

    /**
     * Sets id, loop mode, brightness and speed boost from the first entry with this id.
     *
     * @param playlist_desc_path  relative to the playlist's root directory
     * Throws Exceptions::InvalidPath or Exceptions::InvalidFileFormat, with the playlist untouched.
     */
    void parse_desc(int playlist_id, const QString& playlist_desc_path, Playlist& playlist) const;

    /**
     * Appends the effects of the file "playlists/ID.json" in playing order. After parse_desc().
     *
     * Throws Exceptions::InvalidPath or Exceptions::InvalidFileFormat; the effects before the bad one stay.
     */
    void parse_effects(Playlist& playlist) const;

    /// Replaces `map` by the outputs that can be used, `count` of them. Elements that are no text are
    /// ignored.
    void parse_outputs(const QJsonArray& outputs, Playlist::Effect::DestAddrMap& map, int& count) const;

    /// Replaces `map` by the universes that have a zone. Elements that are no object are ignored.
    void parse_universes(const QJsonArray& universes, Playlist::Effect::UniZoneMap& map) const;

private:
    using Outcome = PlaylistParserObserver::Outcome;

    [[nodiscard]] Playlist::Effect parse_effect(const QJsonObject& object) const;
    /// Tells the observer, if there is one.
    void tell(Outcome outcome, const char* key, int index, const char* reason) const {
        if (observer_ != nullptr) {
            observer_->report(outcome, key, index, reason);
        }
    }
    /// Tells it when the default of `key` holds, since there is no such key or none of this type.
    void tell_default(const QJsonObject& object, const char* key, QJsonValue::Type type,
                      const char* reason) const;

    PlaylistParserObserver* observer_ = nullptr;
};

/// Order of effects: by the integer "sort", 0 where there is none. Logs every comparison.
[[nodiscard]] bool sortLessThan(const QJsonValue& a, const QJsonValue& b);
