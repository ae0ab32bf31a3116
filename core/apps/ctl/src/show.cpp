#include "show.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include "names.h"
#include "ondra/truncate_to_int.h"
#include "playlist_parser.h"

namespace fs = std::filesystem;

namespace ctl {

namespace {

constexpr const char* kDescriptionPath = "playlists/playlists.json";

/// Ids of the description file, ascending.
std::set<int> playlist_ids(const std::string& path, std::vector<std::string>& problems) {
    QFile file(QString::fromLocal8Bit(path.c_str()));
    if (!file.open(QIODevice::ReadOnly)) {
        problems.push_back(path + ": " + file.errorString().toStdString());
        return {};
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (!document.isArray()) {
        const std::string reason =
            error.error != QJsonParseError::NoError
                ? "byte " + std::to_string(error.offset) + ": " + error.errorString().toStdString()
                : "expected an array of playlists";
        problems.push_back(path + ": " + reason);
        return {};
    }
    std::set<int> ids;
    const QJsonArray array = document.array();
    for (const QJsonValue element : array) {
        const QJsonValue id = element.toObject().value(QLatin1String("Id"));
        if (id.isDouble()) {
            ids.insert(ondra::truncate_to_int(id.toDouble()));
        }
    }
    return ids;
}

std::uint64_t size_of(const std::string& path) {
    std::error_code failed;
    const std::uintmax_t size = fs::is_regular_file(path, failed) ? fs::file_size(path, failed) : 0;
    return failed ? 0 : size;
}

}  // namespace

std::string data_directory_of(int process, const std::string& proc) {
    const std::string link = proc + "/" + std::to_string(process) + "/exe";
    std::error_code failed;
    const fs::path program = fs::read_symlink(link, failed);
    if (failed) {
        throw cli::Failure("cannot see where the service (process " + std::to_string(process) +
                           ") has its data: " + link + ": " + failed.message() +
                           "; name the directory with --data");
    }
    return (program.parent_path() / ".." / "data").string();
}

std::string find_data_directory(const BusSettings& settings, const std::string& given) {
    if (!given.empty()) {
        return given;
    }
    const Bus bus(settings);
    return data_directory_of(bus.process_of(kPlayer));
}

Show read_show(const std::string& directory) {
    Show show;
    show.directory = directory;
    const PlaylistParser parser;
    for (const int id : playlist_ids(directory + "/" + kDescriptionPath, show.problems)) {
        Playlist playlist;
        playlist.set_root_dir(QString::fromLocal8Bit(directory.c_str()));
        try {
            parser.parse_desc(id, QString::fromLatin1(kDescriptionPath), playlist);
            parser.parse_effects(playlist);
            show.playlists.push_back({id, playlist.loop_mode(), playlist.effects()});
        } catch (const std::exception& error) {
            show.problems.push_back(directory + "/playlists/" + std::to_string(id) +
                                    ".json: " + error.what());
        }
    }
    return show;
}

std::string recording_path(const Show& show, const Playlist::Effect& effect) {
    return show.directory + "/" + effect.path.toLocal8Bit().toStdString();
}

std::string recording_problem(const std::string& path) {
    std::error_code failed;
    const fs::file_status status = fs::status(path, failed);
    if (!fs::exists(status)) {
        return failed && status.type() != fs::file_type::not_found ? failed.message() : "not found";
    }
    if (!fs::is_regular_file(status)) {
        return "not a plain file";
    }
    return std::ifstream(path, std::ios::binary) ? "" : "cannot be opened for reading";
}

std::uint64_t largest_playlist_bytes(const Show& show) {
    std::uint64_t largest = 0;
    for (const ShowPlaylist& playlist : show.playlists) {
        std::uint64_t sum = 0;
        for (const Playlist::Effect& effect : playlist.effects) {
            sum += size_of(recording_path(show, effect));
        }
        largest = std::max(largest, sum);
    }
    return largest;
}

std::set<int> output_ports(const Show& show) {
    std::set<int> ports;
    for (const ShowPlaylist& playlist : show.playlists) {
        for (const Playlist::Effect& effect : playlist.effects) {
            for (const auto& [universe, addresses] : effect.outputs) {
                for (const Playlist::Address& address : addresses) {
                    ports.insert(address.port);
                }
            }
        }
    }
    return ports;
}

std::uint64_t recording_bytes(const Show& show) {
    std::set<std::string> paths;
    for (const ShowPlaylist& playlist : show.playlists) {
        for (const Playlist::Effect& effect : playlist.effects) {
            paths.insert(recording_path(show, effect));
        }
    }
    std::uint64_t sum = 0;
    for (const std::string& path : paths) {
        sum += size_of(path);
    }
    return sum;
}

}  // namespace ctl
