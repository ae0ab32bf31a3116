// Which universes a show lights: what its recordings hold, sent where its effects say.

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
    explicit RecordingUniverses(const std::function<void(std::uint64_t)>& tell) : tell_(tell) {}

    /// Universes of the ArtDmx packets of a recording.
    const std::set<int>& of(const std::string& path, std::vector<std::string>& problems) {
        const auto [entry, is_new] = known_.try_emplace(path);
        if (is_new) {
            const std::string problem = recording_problem(path);
            if (problem.empty()) {
                read(path, entry->second, problems);
            } else {
                problems.push_back(path + ": " + problem);
            }
        }
        return entry->second;
    }

private:
    void read(const std::string& path, std::set<int>& universes, std::vector<std::string>& problems) {
        ArtNetParser parser;
        parser.on_artdmx = [this, &universes](ArtDmx& dmx) {
            universes.insert(dmx.SubUni | dmx.Net << 8);
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

}  // namespace

ShowOutput read_show_output(const Show& show, const std::function<void(std::uint64_t)>& tell) {
    ShowOutput output;
    RecordingUniverses recordings(tell);
    for (const ShowPlaylist& playlist : show.playlists) {
        for (const Playlist::Effect& effect : playlist.effects) {
            std::set<int> universes = recordings.of(recording_path(show, effect), output.problems);
            // What the description names counts even if the recording cannot be read any more.
            for (const auto& [universe, addresses] : effect.outputs) {
                universes.insert(universe);
            }
            for (const auto& [universe, zone] : effect.universes) {
                universes.insert(universe);
            }
            for (const int universe : universes) {
                const auto zone = effect.universes.find(universe);
                if (universe < 0 || universe > kLastUniverse ||
                    (zone != effect.universes.end() && zone->second == kMutedZone)) {
                    continue;
                }
                std::map<Endpoint, std::set<int>>& destinations = output.universes[universe];
                if (const std::vector<Playlist::Address>* const addresses = addresses_of(effect, universe)) {
                    for (const Playlist::Address& address : *addresses) {
                        destinations[{address.ip, address.port}].insert(playlist.id);
                    }
                }
            }
        }
    }
    return output;
}

}  // namespace ctl
