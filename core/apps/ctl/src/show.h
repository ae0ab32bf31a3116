#pragma once
// What the data directory says that the service may play, and where to.

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "bus.h"
#include "playlist.h"

namespace ctl {

/// A destination of output.
struct Endpoint {
    /// Dotted IPv4 text.
    std::string address;
    int port = 0;

    auto operator<=>(const Endpoint&) const = default;
};

/// One playlist, read with the service's own parser.
struct ShowPlaylist {
    int id = 0;
    bool loop = true;
    std::vector<Playlist::Effect> effects;
};

/// A data directory's description files.
struct Show {
    std::string directory;
    /// Those that the service would load, by id.
    std::vector<ShowPlaylist> playlists;
    /// A line for each thing that it would not: file and reason.
    std::vector<std::string> problems;
};

/// The data directory of the running service: beside its executable, as it finds it itself.
/// @param proc  where process information is, "/proc" but for tests
/// Throws cli::Failure when it cannot be found out.
[[nodiscard]] std::string data_directory_of(int process, const std::string& proc = "/proc");

/// That of the service on the bus, or `given` if there is one.
[[nodiscard]] std::string find_data_directory(const BusSettings& settings, const std::string& given);

/// Reads all description files; what cannot be read becomes a problem.
[[nodiscard]] Show read_show(const std::string& directory);

/// Path of an effect's recording.
[[nodiscard]] std::string recording_path(const Show& show, const Playlist::Effect& effect);

/// Why a recording cannot be read, empty when it can. Opens it, but only a plain file: opening a FIFO would
/// wait.
[[nodiscard]] std::string recording_problem(const std::string& path);

/// Bytes of the recordings of the largest playlist, each effect counted: about what playing it keeps in
/// memory.
[[nodiscard]] std::uint64_t largest_playlist_bytes(const Show& show);

/// Ports that outputs of the show name.
[[nodiscard]] std::set<int> output_ports(const Show& show);

/// The universes that the show lights, each with the destinations that effects name for it and the playlists
/// that do so.
struct ShowOutput {
    std::map<int, std::map<Endpoint, std::set<int>>> universes;
    std::vector<std::string> problems;
};

/// What the effects themselves name, in outputs and zones; no recording is read for it.
/// Muted universes (zone -2) are left out, since the service does not send them.
[[nodiscard]] ShowOutput named_output(const Show& show);

/// Who is told how far the reading of recordings has come; each may be empty.
struct ReadingListener {
    /// Called with the bytes read so far, now and then.
    std::function<void(std::uint64_t)> progress;
    /// Called as soon as a packet shows a universe, or more destinations of it, that were not known: with all
    /// that are known of that universe.
    std::function<void(int universe, const std::map<Endpoint, std::set<int>>& destinations)> found;
};

/// What named_output() gives and what is in the recordings, all of which are read.
[[nodiscard]] ShowOutput read_show_output(const Show& show, const ReadingListener& listener);

/// Bytes of all recordings that read_show_output() reads.
[[nodiscard]] std::uint64_t recording_bytes(const Show& show);

}  // namespace ctl
