#pragma once
// Checks a whole data directory.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "data_finding.h"
#include "description_check.h"
#include "inspect/inspection.h"

namespace datacheck {

struct ShowOptions {
    /// Ids of the zones that control software sets; none: not known.
    std::optional<std::set<int>> zones;
    /// Universes that nodes listen to; empty: none are known.
    std::set<int> node_universes;
    /// Files that belong to the check and need no playlist.
    std::vector<std::string> side_files;
    /// Most findings kept of one kind in one recording; 0: all.
    std::size_t per_kind = 10;
};

struct ShowSummary {
    std::uint64_t playlists = 0;
    std::uint64_t effects = 0;
    std::uint64_t recordings = 0;
};

/// Told of progress in one recording.
using ShowProgress =
    std::function<void(const std::string& recording, std::uint64_t done, std::uint64_t total)>;

class ShowCheck {
public:
    ShowCheck(std::string root, const ShowOptions& options, DataFindings& findings)
        : root_(std::move(root)), options_(options), findings_(findings) {}

    /// Reads the description, every effects file and every recording. Once. Long for long recordings.
    ShowSummary run(const ShowProgress& progress);

private:
    /// What of a report the playlist's own checks need.
    struct Recording {
        bool loads = false;
        bool endless = false;
        std::uint64_t packets = 0;
        std::chrono::nanoseconds duration{0};
        std::set<int> universes;
    };
    /// A recording played in one way: path, fps, ppf, loop.
    using RecordingKey = std::tuple<std::string, int, int, bool>;

    void check_playlist(const CheckedPlaylist& playlist);
    const Recording& inspect(const CheckedPlaylist& playlist, const CheckedEffect& effect);
    void take_report(const std::string& path, const inspect::RecordingReport& report);
    void check_routes(const CheckedPlaylist& playlist, const CheckedEffect& effect,
                      const Recording& recording);
    void check_zones(const CheckedPlaylist& playlist, const CheckedEffect& effect,
                     const Recording& recording);
    void check_unreachable();
    /// Every file below a folder that is not hidden. Does not follow links to folders.
    void collect_files(const std::filesystem::path& directory, std::vector<std::filesystem::path>& files);
    void reach(const std::string& path);
    void add(const char* kind, Level level, const std::string& file, const std::string& element,
             const std::string& text);

    std::string root_;
    const ShowOptions& options_;
    DataFindings& findings_;
    ShowProgress progress_;
    std::map<RecordingKey, Recording> recordings_;
    /// Canonical paths of the files that something leads to.
    std::set<std::filesystem::path> reached_;
    std::set<std::string> inspected_;
};

}  // namespace datacheck
