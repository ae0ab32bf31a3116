#include "show_check.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <system_error>

#include <QFile>

#include "effect_check.h"
#include "inspect/wording.h"
#include "ondra/timing.h"

using namespace std::chrono_literals;

namespace datacheck {

namespace {

namespace fs = std::filesystem;

/// A playlist without loop that plays longer than this was not meant to.
constexpr std::chrono::nanoseconds kEndless = 24h;
/// Zone of a universe that is muted on purpose.
constexpr int kMutedZone = -2;
constexpr std::array<char, 8> kIdentifier{'A', 'r', 't', '-', 'N', 'e', 't', '\0'};

bool begins_as_recording(const fs::path& path) {
    std::array<char, kIdentifier.size()> front{};
    std::ifstream file(path, std::ios::binary);
    return file.read(front.data(), front.size()) && front == kIdentifier;
}

std::string universes_text(const std::set<int>& universes) {
    std::string text = universes.size() == 1 ? "universe " : "universes ";
    for (const int universe : universes) {
        text += (universe == *universes.begin() ? "" : ", ") + std::to_string(universe);
    }
    return text;
}

}  // namespace

ShowSummary ShowCheck::run(const ShowProgress& progress) {
    progress_ = progress;
    reach(root_ + "/" + DescriptionCheck::kDescriptionPath);
    for (const std::string& file : options_.side_files) {
        reach(file);
    }
    DescriptionCheck description(root_, findings_);
    const std::vector<CheckedPlaylist> playlists = description.run();
    ShowSummary summary;
    summary.playlists = playlists.size();
    for (const CheckedPlaylist& playlist : playlists) {
        reach(root_ + "/" + playlist.effects_file);
        for (const std::string& recording : playlist.recordings) {
            reach(root_ + "/" + recording);
        }
        summary.effects += playlist.effects.size();
        check_playlist(playlist);
    }
    check_unreachable();
    summary.recordings = inspected_.size();
    return summary;
}

void ShowCheck::check_playlist(const CheckedPlaylist& playlist) {
    std::uint64_t packets = 0;
    std::chrono::nanoseconds duration{0};
    bool endless = false;
    const CheckedEffect* failed = nullptr;
    for (const CheckedEffect& effect : playlist.effects) {
        check_effect(effect, playlist.effects_file, findings_);
        if (failed != nullptr && playlist.usable) {
            add("not-loaded", Level::Error, playlist.effects_file, effect.element,
                "this effect is not loaded, since the recording of " + failed->element +
                    " before it ends the load; mend that one");
        }
        const Recording& recording = inspect(playlist, effect);
        if (failed == nullptr) {
            packets += recording.packets;
            duration = ondra::saturating_add(ondra::Clock::duration(duration), recording.duration);
            endless = endless || recording.endless;
        }
        if (!recording.loads && failed == nullptr) {
            failed = &effect;
        }
        check_routes(playlist, effect, recording);
        check_zones(playlist, effect, recording);
    }
    if (!playlist.usable) {
        return;
    }
    const std::string name = "playlist " + std::to_string(playlist.id);
    if (packets == 0 && !endless) {
        add("playlist-empty", Level::Error, playlist.effects_file, "",
            name +
                " has no packet to send, and the service refuses to play it; give it an effect with a "
                "recording");
    }
    const std::chrono::nanoseconds played =
        ondra::calculate_delay(ondra::Clock::duration(duration), playlist.speed_boost);
    if (!playlist.loops && (endless || played > kEndless)) {
        add("never-ends", Level::Warning, DescriptionCheck::kDescriptionPath, playlist.element,
            name + " does not loop and " +
                (endless ? "plays what is no regular file, as long as something comes out of it"
                         : "plays " + inspect::time_text(played)) +
                ": whoever waits for its end waits in vain; set \"Loop\" to true or mend its recordings");
    }
}

const ShowCheck::Recording& ShowCheck::inspect(const CheckedPlaylist& playlist,
                                               const CheckedEffect& checked) {
    const Playlist::Effect& effect = checked.effect;
    const std::string relative = QFile::encodeName(effect.path).toStdString();
    // With several effects, the last frame of one is followed by the first of another.
    const bool loops = playlist.loops && playlist.effects.size() == 1;
    const auto [place, is_new] =
        recordings_.try_emplace(RecordingKey{relative, effect.fps, effect.ppf, loops});
    Recording& recording = place->second;
    if (!is_new) {
        return recording;
    }
    const std::string path = root_ + "/" + relative;
    const inspect::InspectOptions how{
        .fps = effect.fps, .ppf = effect.ppf, .loops = loops, .per_kind = options_.per_kind};
    const inspect::RecordingReport report =
        inspect::inspect_recording(path, how, [&](std::uint64_t done, std::uint64_t total) {
            if (progress_) {
                progress_(relative, done, total);
            }
        });
    std::error_code ignored;
    const fs::file_status status = fs::status(path, ignored);
    recording.endless = fs::is_fifo(status) || fs::is_character_file(status);
    recording.loads = report.loads;
    recording.packets = report.packets;
    recording.duration = report.duration;
    for (const inspect::UniverseCount& universe : report.universes) {
        recording.universes.insert(universe.universe);
    }
    // Played in several ways, a recording's own faults are still to be told once.
    take_report(relative, report);
    return recording;
}

void ShowCheck::take_report(const std::string& path, const inspect::RecordingReport& report) {
    const bool again = !inspected_.insert(path).second;
    for (const inspect::Finding& finding : report.findings.list()) {
        const auto same = [&](const DataFinding& known) {
            return known.packet && known.file == path && known.packet->kind == finding.kind &&
                   known.packet->offset == finding.offset && known.text == finding.text;
        };
        if (again && std::ranges::any_of(findings_.list(), same)) {
            continue;
        }
        findings_.add({.kind = finding.kind,
                       .level = finding.level,
                       .file = path,
                       .text = finding.text,
                       .packet = finding});
    }
    for (const auto& [kind, count] : report.findings.left_out()) {
        if (!again) {
            add("more", Level::Note, path, "",
                std::to_string(count) + " more of the kind [" + kind +
                    "] are not listed; --limit 0 lists them");
        }
    }
}

void ShowCheck::check_routes(const CheckedPlaylist& playlist, const CheckedEffect& checked,
                             const Recording& recording) {
    const Playlist::Effect& effect = checked.effect;
    if (recording.packets == 0) {
        return;
    }
    std::set<int> without;
    if (!effect.outputs.contains(Playlist::kAllUniverses)) {
        for (const int universe : recording.universes) {
            const auto zone = effect.universes.find(universe);
            const bool muted = zone != effect.universes.end() && zone->second == kMutedZone;
            if (!muted && !effect.outputs.contains(universe) && !options_.node_universes.contains(universe)) {
                without.insert(universe);
            }
        }
    }
    if (!without.empty()) {
        add("no-destination", Level::Warning, playlist.effects_file, checked.element + ".outputs",
            universes_text(without) +
                " of the recording: no output and no known node; with unicast on they are sent nowhere, else "
                "to everybody by broadcast; add outputs, or name the nodes with --nodes");
    }
    std::set<int> unused;
    for (const auto& [universe, addresses] : effect.outputs) {
        if (universe != Playlist::kAllUniverses && !recording.universes.contains(universe)) {
            unused.insert(universe);
        }
    }
    if (!unused.empty()) {
        add("output-unused", Level::Warning, playlist.effects_file, checked.element + ".outputs",
            universes_text(unused) +
                ": the recording has no such universe; remove the output or mend its number");
    }
}

void ShowCheck::check_zones(const CheckedPlaylist& playlist, const CheckedEffect& checked,
                            const Recording& recording) {
    const std::string element = checked.element + ".universes";
    std::set<int> absent;
    std::set<int> unused;
    for (const auto& [universe, zone] : checked.effect.universes) {
        if (options_.zones && zone >= 0 && !options_.zones->contains(zone)) {
            absent.insert(zone);
        }
        if (recording.packets != 0 && !recording.universes.contains(universe)) {
            unused.insert(universe);
        }
    }
    for (const int zone : absent) {
        add("zone-absent", Level::Error, playlist.effects_file, element,
            "zone " + std::to_string(zone) +
                " is not among the zones given: the universes in it are sent without any level; add the zone "
                "or "
                "mend its number");
    }
    if (!unused.empty()) {
        add("zone-unused", Level::Warning, playlist.effects_file, element,
            universes_text(unused) +
                ": the recording has no such universe; remove the entry or mend its number");
    }
}

void ShowCheck::collect_files(const fs::path& directory, std::vector<fs::path>& files) {
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        // Hidden ones belong to version control and the like.
        if (entry->path().filename().string().starts_with('.')) {
            continue;
        }
        std::error_code unknown;
        if (entry->is_symlink(unknown) && fs::is_directory(entry->status(unknown))) {
            continue;
        }
        if (entry->is_directory(unknown)) {
            collect_files(entry->path(), files);
        } else if (entry->is_regular_file(unknown)) {
            files.push_back(entry->path());
        }
    }
    if (error) {
        add("unreadable-directory", Level::Warning, directory.lexically_relative(root_).string(), "",
            "the folder cannot be looked into (" + error.message() + "); check its permissions");
    }
}

void ShowCheck::check_unreachable() {
    std::vector<fs::path> files;
    collect_files(root_, files);
    std::erase_if(files, [this](const fs::path& file) {
        std::error_code ignored;
        return reached_.contains(fs::weakly_canonical(file, ignored));
    });
    std::ranges::sort(files);
    for (const fs::path& file : files) {
        const std::string name = file.lexically_relative(root_).string();
        const bool effects = file.extension() == ".json" && name.starts_with("playlists/");
        if (effects) {
            add("unreachable-file", Level::Warning, name, "",
                "no playlist in the description file has this effects file; describe it or remove it");
        } else if (begins_as_recording(file)) {
            add("unreachable-file", Level::Warning, name, "",
                "no effect of a playlist plays this recording; use it or remove it");
        } else {
            add("unreachable-file", Level::Note, name, "",
                "nothing that the service reads leads to this file");
        }
    }
}

void ShowCheck::reach(const std::string& path) {
    std::error_code ignored;
    reached_.insert(fs::weakly_canonical(path, ignored));
}

void ShowCheck::add(const char* kind, Level level, const std::string& file, const std::string& element,
                    const std::string& text) {
    findings_.add({.kind = kind, .level = level, .file = file, .element = element, .text = text});
}

}  // namespace datacheck
