// Which universes a show lights: what its recordings hold, sent where its effects say.

#include <algorithm>
#include <system_error>

#include "artnet/artnet_parser.h"
#include "show.h"

namespace ctl {

namespace {

/// Zone of a universe that is muted on purpose.
constexpr int kMutedZone = -2;
constexpr int kLastUniverse = 0xFFFF;

/// Reads each recording once, whichever effects play it.
class RecordingUniverses {
public:
    using Take = std::function<void(int universe)>;

    explicit RecordingUniverses(const std::function<void(std::uint64_t)>& tell) : tell_(tell) {}

    /// Gives the universes of a recording's ArtDmx packets to `take`, each once; while the recording is read,
    /// as they come.
    void each(const std::string& path, std::vector<std::string>& problems, const Take& take) {
        const auto [entry, is_new] = known_.try_emplace(path);
        if (!is_new) {
            std::for_each(entry->second.begin(), entry->second.end(), take);
        } else if (const std::string problem = recording_problem(path); problem.empty()) {
            read(path, entry->second, problems, take);
        } else {
            problems.push_back(path + ": " + problem);
        }
    }

private:
    void read(const std::string& path, std::set<int>& universes, std::vector<std::string>& problems,
              const Take& take) {
        ArtNetParser parser;
        parser.on_artdmx = [this, &universes, &take](ArtDmx& dmx) {
            const int universe = dmx.SubUni | dmx.Net << 8;
            if (universes.insert(universe).second) {
                take(universe);
            }
            bytes_ += kDmxHeaderSize + dmx.Length;
            if (tell_) {
                tell_(bytes_);
            }
        };
        std::error_code error;
        parser.parse(path.c_str(), error);
        if (error) {
            // What was found before the error is what the service plays of it.
            problems.push_back(path + ": " + error.message());
        }
    }

    const std::function<void(std::uint64_t)>& tell_;
    std::map<std::string, std::set<int>> known_;
    std::uint64_t bytes_ = 0;
};

const std::vector<Playlist::Address>* addresses_of(const Playlist::Effect& effect, int universe) {
    for (const int key : {universe, Playlist::kAllUniverses}) {
        if (const auto found = effect.outputs.find(key); found != effect.outputs.end()) {
            return &found->second;
        }
    }
    return nullptr;
}

/// Notes that an effect lights a universe; false when that says nothing new.
bool add(ShowOutput& output, int playlist, const Playlist::Effect& effect, int universe) {
    const auto zone = effect.universes.find(universe);
    if (universe < 0 || universe > kLastUniverse ||
        (zone != effect.universes.end() && zone->second == kMutedZone)) {
        return false;
    }
    const auto [entry, is_new_universe] = output.universes.try_emplace(universe);
    bool is_new = is_new_universe;
    if (const std::vector<Playlist::Address>* const addresses = addresses_of(effect, universe)) {
        for (const Playlist::Address& address : *addresses) {
            const auto [to, is_new_destination] = entry->second.try_emplace({address.ip, address.port});
            to->second.insert(playlist);
            is_new = is_new || is_new_destination;
        }
    }
    return is_new;
}

}  // namespace

ShowOutput named_output(const Show& show) {
    ShowOutput output;
    for (const ShowPlaylist& playlist : show.playlists) {
        for (const Playlist::Effect& effect : playlist.effects) {
            for (const auto& [universe, addresses] : effect.outputs) {
                add(output, playlist.id, effect, universe);
            }
            for (const auto& [universe, zone] : effect.universes) {
                add(output, playlist.id, effect, universe);
            }
        }
    }
    return output;
}

ShowOutput read_show_output(const Show& show, const ReadingListener& listener) {
    // What the descriptions name counts even if a recording cannot be read any more.
    ShowOutput output = named_output(show);
    RecordingUniverses recordings(listener.progress);
    for (const ShowPlaylist& playlist : show.playlists) {
        for (const Playlist::Effect& effect : playlist.effects) {
            recordings.each(recording_path(show, effect), output.problems, [&](int universe) {
                if (add(output, playlist.id, effect, universe) && listener.found) {
                    listener.found(universe, output.universes.at(universe));
                }
            });
        }
    }
    return output;
}

}  // namespace ctl
