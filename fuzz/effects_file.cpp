// Fuzz target: the effects file of a playlist.
#include <algorithm>
#include <string>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "exceptions.h"
#include "json_document.h"
#include "memory_file.h"
#include "parser_listener.h"
#include "playlist_parser.h"
#include "support/playlist_access.h"
#include "target.h"

namespace fuzz {

namespace {

/// A data directory whose effects file of playlist 3 lies in memory.
struct DataDirectory {
    DataDirectory() {
        require(QDir(directory.path()).mkdir(QStringLiteral("playlists")) &&
                    QFile::link(QString::fromStdString(effects.path()),
                                directory.path() + QStringLiteral("/playlists/3.json")),
                "a data directory can be made");
    }
    QTemporaryDir directory;
    MemoryFile effects;
};

void check_address(int universe, const Playlist::Address& address) {
    require(universe >= -1 && universe <= 32767, "an output goes to a universe");
    require(address.port >= 1024 && address.port <= 65535, "an output goes to a port");
    require(address.ipv4 >= 0x01000000 && address.ipv4 >> 24 != 127, "an output goes to another host");
}

void check_effect(const Playlist::Effect& effect) {
    require(effect.fixed_fps == (effect.fps != -1), "fps says whether the rate is fixed");
    require(effect.auto_ppf == (effect.fps != -1 && effect.ppf == -1), "the frame size is found or given");
    for (const auto& [universe, addresses] : effect.outputs) {
        require(!addresses.empty(), "a universe with outputs has one");
        for (const Playlist::Address& address : addresses) {
            check_address(universe, address);
        }
    }
}

bool same_effect(const Playlist::Effect& one, const Playlist::Effect& other) {
    const auto same_address = [](const Playlist::Address& a, const Playlist::Address& b) {
        return a.ip == b.ip && a.port == b.port;
    };
    const auto same_outputs = [same_address, &other](const auto& entry) {
        const auto found = other.outputs.find(entry.first);
        return found != other.outputs.end() &&
               std::equal(entry.second.begin(), entry.second.end(), found->second.begin(),
                          found->second.end(), same_address);
    };
    return one.path == other.path && one.fps == other.fps && one.ppf == other.ppf &&
           one.universes == other.universes && one.outputs.size() == other.outputs.size() &&
           std::all_of(one.outputs.begin(), one.outputs.end(), same_outputs);
}

JsonShape effects_shape() {
    const JsonShape output = text_shape({"*:10.0.0.5:6454", "1:10.0.0.6:6454", "32767:1.0.0.0:1024",
                                         "7:255.255.255.255:65535", "1:127.0.0.1:6454", "32768:10.0.0.5:6454",
                                         "1:10.0.0.5:80", "1:0.1.2.3:6454", "1:10.0.0.5", "1:::1:6454"});
    const JsonShape universe = object_shape(
        {{"id", number_shape({"1", "0", "-1", "2"})}, {"zone", number_shape({"2", "-1", "-2", "1"})}});
    return array_shape(object_shape({{"path", text_shape({"", "a.rec"})},
                                     {"fps", number_shape({"-1", "30", "0", "1"})},
                                     {"outputs", array_shape(output)},
                                     {"universes", array_shape(universe)},
                                     {"ppf", number_shape({"-1", "4", "0", "1"})},
                                     {"sort", number_shape({"0", "1", "2", "-1"})},
                                     {"name", text_shape({"blue", ""})}}));
}

/// Whether the file is taken as a whole.
bool parse(const PlaylistParser& parser, const QString& root, bool absent, Playlist& playlist) {
    playlist.set_root_dir(root);
    PlaylistAccess::set_id(playlist, absent ? 4 : 3);
    try {
        parser.parse_effects(playlist);
        return true;
    } catch (const Exceptions::InvalidFileFormat& exception) {
        require(std::string(exception.what()) == "Playlist effects file format invalid",
                "the message of an invalid file");
    } catch (const Exceptions::InvalidPath& exception) {
        require(absent && std::string(exception.what()) == "Playlist effects file not found",
                "the message of a file that is not there");
    }
    return false;
}

bool run(Input input) {
    static DataDirectory data;
    static const JsonShape kShape = effects_shape();
    format_log_lines();
    data.effects.write(json_text(input, kShape));
    Playlist playlist;
    // Nothing stands for a file that is not there.
    const bool valid = parse(PlaylistParser(), data.directory.path(), input.empty(), playlist);
    for (const Playlist::Effect& effect : playlist.effects()) {
        check_effect(effect);
    }

    ParserListener listener;
    Playlist heard;
    require(parse(PlaylistParser(listener), data.directory.path(), input.empty(), heard) == valid &&
                std::equal(heard.effects().begin(), heard.effects().end(), playlist.effects().begin(),
                           playlist.effects().end(), same_effect),
            "a listener changes nothing");
    require(listener.rejected() == !valid, "a listener hears of a refusal");
    return valid || !playlist.effects().empty();
}

std::vector<Seed> seeds() {
    std::vector<Seed> seeds = json_seeds();
    const std::vector<Seed> own = as_json_texts({
        {"whole", R"([{"path": "a.rec", "fps": 30, "ppf": 4, "sort": 1, "name": "blue",
            "outputs": ["*:10.0.0.5:6454", "1:10.0.0.6:6454"], "universes": [{"id": 1, "zone": 2}]}])"},
        {"least", R"([{"path": "", "fps": -1, "outputs": []}])"},
        {"no_path", R"([{"fps": -1, "outputs": []}])"},
        {"no_fps", R"([{"path": "a", "outputs": []}])"},
        {"no_outputs", R"([{"path": "a", "fps": 1}])"},
        {"bad_outputs", R"([{"path": "a", "fps": 1, "outputs": ["", 3, "1:2", "x:10.0.0.5:6454",
            "1:127.0.0.1:6454", "1:::1:6454", "1:10.0.0.5:80", "-1:10.0.0.5:6454"]}])"},
        {"universes", R"([{"path": "a", "fps": 1, "outputs": [], "universes": [{"id": 1}, {"zone": 2}, 3,
            {"id": 1.9, "zone": -1e99}, {"id": 1, "zone": 4}]}])"},
        {"order", R"([{"path": "a", "fps": 1, "outputs": [], "sort": 2}, 7, null,
            {"path": "b", "fps": 1, "outputs": [], "sort": 1, "name": ["b"]}])"},
        {"doubled_key", R"([{"path": "a", "fps": 1, "outputs": ["1:10.0.0.5:6454"], "outputs": []}])"},
    });
    seeds.insert(seeds.end(), own.begin(), own.end());
    return seeds;
}

}  // namespace

Target effects_file() {
    return {"effects_file",
            run,
            seeds,
            700,
            "path=\"\\\"path\\\":\"\nfps=\"\\\"fps\\\":\"\noutputs=\"\\\"outputs\\\":[\"\n"
            "universes=\"\\\"universes\\\":[\"\nppf=\"\\\"ppf\\\":\"\nsort=\"\\\"sort\\\":\"\n"
            "name=\"\\\"name\\\":\"\nid=\"\\\"id\\\":\"\nzone=\"\\\"zone\\\":\"\n"
            "output=\"\\\"*:10.0.0.5:6454\\\"\"\nnull=\"null\"\nhuge=\"1e300\"\n"
            "effect=\"{\\\"path\\\":\\\"\\\",\\\"fps\\\":1,\\\"outputs\\\":[]}\"\n",
            "core/apps/output/repeater/src/playlist_parser.cpp "
            "core/apps/output/repeater/src/playlist_parser_routing.cpp "
            "core/apps/output/repeater/src/output_string.cpp",
            "parse_desc|find_desc"};
}

}  // namespace fuzz
