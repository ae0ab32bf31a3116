// Fuzz target: the description file, which lists the playlists.
#include <stdexcept>
#include <string>

#include "exceptions.h"
#include "json_document.h"
#include "memory_file.h"
#include "parser_listener.h"
#include "playlist_parser.h"
#include "target.h"

namespace fuzz {

namespace {

constexpr int kId = 3;

JsonShape description_shape() {
    const JsonShape percent = number_shape({"0", "50", "100", "10"});
    return array_shape(object_shape({{"Id", number_shape({"3", "1", "3.9", "-3"})},
                                     {"Loop", flag_shape()},
                                     {"Brightness", percent},
                                     {"SpeedBoost", percent}}));
}

/// Empty for a description that is taken, else the message of its refusal.
std::string parse(const PlaylistParser& parser, const QString& path, bool absent, Playlist& playlist) {
    playlist.set_root_dir(QLatin1String(MemoryFile::kDirectory));
    playlist.set_brightness(55);
    std::string message;
    try {
        parser.parse_desc(kId, path, playlist);
        require(playlist.id() == kId, "the playlist found has the id looked for");
        return message;
    } catch (const Exceptions::InvalidPath& exception) {
        message = exception.what();
        require(message == (absent ? "Playlist desc file not found" : "Playlist desc not found"),
                "the message of what is not found");
    } catch (const Exceptions::InvalidFileFormat& exception) {
        message = exception.what();
        require(message == "Playlist desc file format invalid", "the message of an invalid file");
    }
    require(playlist.id() == -1 && playlist.loop_mode() && playlist.get_brightness() == 55 &&
                playlist.get_speed_boost() == 0,
            "a playlist stays untouched when its description is refused");
    return message;
}

bool run(Input input) {
    static MemoryFile file;
    static const JsonShape kShape = description_shape();
    format_log_lines();
    file.write(json_text(input, kShape));
    // Nothing stands for a file that is not there.
    const QString path = QString::fromStdString(input.empty() ? "absent" : file.name());
    Playlist playlist;
    const std::string message = parse(PlaylistParser(), path, input.empty(), playlist);

    ParserListener listener;
    Playlist heard;
    require(parse(PlaylistParser(listener), path, input.empty(), heard) == message &&
                heard.loop_mode() == playlist.loop_mode() &&
                heard.get_brightness() == playlist.get_brightness() &&
                heard.get_speed_boost() == playlist.get_speed_boost(),
            "a listener changes nothing");
    require(listener.rejected() == !message.empty(), "a listener hears of a refusal");
    // Only a list of playlists gets as far as being looked through.
    return message.empty() || message == "Playlist desc not found";
}

std::vector<Seed> seeds() {
    std::vector<Seed> seeds = json_seeds();
    const std::vector<Seed> own = as_json_texts({
        {"whole", R"([{"Id": 3, "Loop": false, "Brightness": 50, "SpeedBoost": 10}])"},
        {"defaults", R"([{"Id": 3}])"},
        {"second", R"([{"Id": 1}, {"Id": 3, "Loop": true}, {"Id": 3, "Loop": false}])"},
        {"fraction", R"([{"Id": 3.7, "Brightness": 29.97, "SpeedBoost": -0.5}])"},
        {"wrong_types", R"([{"Id": "3"}, {"Id": 3, "Loop": 0, "Brightness": "9", "SpeedBoost": null}])"},
        {"huge", R"([{"Id": 3, "Brightness": 1e308, "SpeedBoost": -1e308}])"},
        {"not_objects", R"([1, "a", null, [], true, {"Id": 3}])"},
        {"repeated_keys", R"([{"Id": 1, "Id": 3, "Loop": true, "Loop": false, "Loop": true}])"},
        {"lower_case", R"([{"id": 3}])"},
    });
    seeds.insert(seeds.end(), own.begin(), own.end());
    return seeds;
}

}  // namespace

Target description_file() {
    return {"description_file",
            run,
            seeds,
            400,
            "id=\"\\\"Id\\\":3\"\nloop=\"\\\"Loop\\\":\"\nbrightness=\"\\\"Brightness\\\":\"\n"
            "boost=\"\\\"SpeedBoost\\\":\"\ntrue=\"true\"\nfalse=\"false\"\nnull=\"null\"\nhuge=\"1e300\"\n",
            "core/apps/output/repeater/src/playlist_parser.cpp",
            "parse_effect|sort_key|sortLessThan|reject_effects_file"};
}

}  // namespace fuzz
