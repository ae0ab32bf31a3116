#pragma once
// Reads the description files with the service's own parser and reports what it does not take as it stands.

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <QJsonArray>
#include <QJsonObject>

#include "data_finding.h"
#include "playlist.h"
#include "playlist_parser_observer.h"

namespace datacheck {

/// An effect as the parser has stored it.
struct CheckedEffect {
    /// Where it stands in its file, such as "[2]".
    std::string element;
    Playlist::Effect effect;
};

struct CheckedPlaylist {
    int id = 0;
    /// Its element in the description file.
    std::string element;
    /// Relative to the data directory.
    std::string effects_file;
    /// False when the service cannot load it.
    bool usable = false;
    bool loops = true;
    int speed_boost = 0;
    /// In playing order.
    std::vector<CheckedEffect> effects;
    /// Every recording that the effects file names, also where the file is rejected.
    std::vector<std::string> recordings;
};

class DescriptionCheck final : private PlaylistParserObserver {
public:
    /// Description file, relative to the data directory, as the service is set up.
    static constexpr const char* kDescriptionPath = "playlists/playlists.json";

    /// @param root  data directory
    DescriptionCheck(std::string root, DataFindings& findings)
        : root_(std::move(root)), findings_(findings) {}

    /// Reads everything. Once.
    [[nodiscard]] std::vector<CheckedPlaylist> run();

private:
    /// A key and the range that the service uses as it stands; none when lowest is above highest.
    struct NumberKey {
        const char* key;
        int lowest;
        int highest;
        const char* meaning;
    };

    void begin_effect(int position) override;
    void report(Outcome outcome, const char* key, int index, const char* reason) override;

    /// The array of a file; false, with a finding, when there is none.
    bool read_array(const std::string& file, const char* missing_kind, const std::string& consequence,
                    QJsonArray& array);
    void check_playlist(int id, int index);
    void read_effects(CheckedPlaylist& playlist, Playlist& parsed);
    /// Numbers that are cut or outside their range, keys in the wrong case.
    void check_object(const QJsonObject& object, const std::string& element,
                      std::initializer_list<NumberKey> numbers,
                      std::initializer_list<const char*> other_keys);
    /// Universes that have a zone twice. @param element  the array that they stand in
    void check_zones(const QJsonArray& universes, const std::string& element);
    void flush_defaults();
    void add(const char* kind, Level level, const std::string& element, const std::string& text);

    std::string root_;
    DataFindings& findings_;
    std::vector<CheckedPlaylist> playlists_;
    /// What is being parsed.
    std::string file_;
    std::string element_;
    /// The effects file's array, the playing order of its elements, and those that gave an effect so far.
    QJsonArray array_;
    std::vector<int> order_;
    std::vector<int> accepted_;
    /// Defaults of keys that are absent in the element, for one note.
    std::string defaults_;
};

}  // namespace datacheck
