#include <vector>

#include "checks.h"

namespace ctl {

namespace {

constexpr std::size_t kShown = 3;

/// Recordings that cannot be read, each once.
std::set<std::string> recording_problems(const Show& show) {
    std::set<std::string> problems;
    for (const ShowPlaylist& playlist : show.playlists) {
        for (const Playlist::Effect& effect : playlist.effects) {
            const std::string path = recording_path(show, effect);
            if (const std::string problem = recording_problem(path); !problem.empty()) {
                problems.insert(std::string(path).append(": ").append(problem));
            }
        }
    }
    return problems;
}

}  // namespace

Finding check_data(const Show& show, const std::string& why_unknown) {
    if (!why_unknown.empty()) {
        return {"data", Verdict::Unknown, "not to be found: " + why_unknown, "name it with --data"};
    }
    std::vector<std::string> problems = show.problems;
    for (const std::string& problem : recording_problems(show)) {
        problems.push_back(problem);
    }
    const std::string advice = "\"cuewright-check " + show.directory + "\" looks at all of it in detail";
    if (problems.empty() && show.playlists.empty()) {
        return {"data", Verdict::Problem, show.directory + " has no playlist", advice};
    }
    if (problems.empty()) {
        return {"data", Verdict::Good,
                show.directory + ": " + std::to_string(show.playlists.size()) +
                    (show.playlists.size() == 1 ? " playlist" : " playlists") + " can be read",
                advice};
    }
    std::string text;
    for (std::size_t i = 0; i < problems.size() && i < kShown; ++i) {
        text += (i == 0 ? "" : "; ") + problems[i];
    }
    if (problems.size() > kShown) {
        text += "; and " + std::to_string(problems.size() - kShown) + " more";
    }
    return {"data", Verdict::Problem, text, advice};
}

}  // namespace ctl
