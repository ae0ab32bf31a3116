#include "control_model.h"

#include <algorithm>

namespace model {

namespace {

constexpr int kErrorLevel = -2;
constexpr int kNormalLevel = 3;
constexpr int kDetailLevel = 4;

std::string number(int value) {
    return std::to_string(value);
}

int percent_of(int value) {
    if (value > 100) {
        return 100;
    }
    return value < 0 ? 0 : value;
}

}  // namespace

ControlModel::ControlModel(std::vector<ControlledPlaylist> show, std::string root)
    : show_(std::move(show)), root_(std::move(root)) {}

void ControlModel::log(int level, const std::string& text) {
    if (level <= level_) {
        lines_.push_back({level, text, context_ && level < 0});
    }
}

std::vector<LogLine> ControlModel::take_lines() {
    return std::exchange(lines_, {});
}

const ControlModel::Loaded* ControlModel::find(int id) const {
    const auto found = std::find_if(loaded_.begin(), loaded_.end(),
                                    [id](const Loaded& loaded) { return loaded.playlist->id == id; });
    return found == loaded_.end() ? nullptr : &*found;
}

ControlModel::Loaded* ControlModel::find(int id) {
    return const_cast<Loaded*>(std::as_const(*this).find(id));
}

void ControlModel::remember_race(const Loaded& stopped) {
    if (stopped.playlist->ends && !stopped.ended && stopped.running) {
        stopped_.push_back(stopped.playlist->id);
    }
}

void ControlModel::stop() {
    log(kNormalLevel, "[Repeater::stop] Stop all playlists");
    for (const Loaded& loaded : loaded_) {
        remember_race(loaded);
    }
    loaded_.clear();
}

void ControlModel::set_brightness(int id, int percent) {
    log(kDetailLevel, "[Repeater::set_brightness] Set brightness (playlist_id:" + number(id) +
                          ", brightness:" + number(percent) + ")");
    if (Loaded* const loaded = find(id)) {
        loaded->brightness = percent_of(percent);
    } else {
        log(kNormalLevel,
            "[Repeater::set_brightness] Cuelist is not active (playlist_id:" + number(id) + ")");
    }
}

void ControlModel::set_speed_boost(int id, int percent) {
    log(kDetailLevel, "[Repeater::set_speed_boost] Set speed boost (playlist_id:" + number(id) +
                          ", speed_boost:" + number(percent) + ")");
    // What it changes is the time between frames, of which the model knows nothing.
    if (find(id) == nullptr) {
        log(kNormalLevel,
            "[Repeater::set_speed_boost] Cuelist is not active (playlist_id:" + number(id) + ")");
    }
}

bool ControlModel::play(int id) {
    log(kNormalLevel, "[Repeater::play_playlist] Play playlist (playlist_id:" + number(id) + ")");
    if (Loaded* const loaded = find(id)) {
        if (loaded->running) {
            log(kNormalLevel, "[Repeater::play_playlist] Cuelist already playing");
        }
        loaded->running = true;
        return true;
    }
    if (!load(id)) {
        log(kNormalLevel, "[Repeater::play_playlist] Failed to load cuelist");
        return false;
    }
    const ControlledPlaylist& playlist = *loaded_.back().playlist;
    if (!playlist.effect || playlist.effect->looks.empty()) {
        log(kNormalLevel, "[Repeater::play_playlist] Cuelist data is absent");
        loaded_.pop_back();
        return false;
    }
    return true;
}

bool ControlModel::load_failed(const std::string& error) {
    log(kNormalLevel, "[Repeater::load_playlist] Failed to load cuelist (err:" + error + ")");
    return false;
}

bool ControlModel::load(int id) {
    log(kNormalLevel, "[Repeater::load_playlist] Load playlist (playlist_id:" + number(id) + ")");
    log(kNormalLevel, "[PlaylistParser::parse_desc] Parse playlist desc file (playlist_id:" + number(id) +
                          ", playlist_desc_path:playlists/playlists.json)");
    log(kDetailLevel,
        "[PlaylistParser::parse_desc] Found playlists (" + number(static_cast<int>(show_.size())) + ")");
    const auto found = std::find_if(show_.begin(), show_.end(),
                                    [id](const ControlledPlaylist& playlist) { return playlist.id == id; });
    if (found == show_.end()) {
        log(kErrorLevel, "[PlaylistParser::parse_desc] Playlist desc not found");
        return load_failed("Playlist desc not found");
    }
    log(kDetailLevel, "[PlaylistParser::parse_desc] Playlist desc parsed (playlist_id:" + number(id) +
                          ", loop_mode:" + number(found->loop ? 1 : 0) + ", brightness:" +
                          number(found->brightness) + ", speed_boost:" + number(found->speed_boost) + ")");
    const std::string path = root_ + "/playlists/" + number(id) + ".json";
    log(kNormalLevel, "[PlaylistParser::parse_effects] Parse playlist effects file (path:" + path + ")");
    if (found->file == EffectsFile::Missing) {
        log(kErrorLevel, "[PlaylistParser::parse_effects] File (path:" + path + ") not found");
        return load_failed("Playlist effects file not found");
    }
    if (found->file == EffectsFile::NotAList) {
        log(kErrorLevel, "[PlaylistParser::parse_effects] Effects not found");
        return load_failed("Playlist effects file format invalid");
    }
    log(kDetailLevel, "[PlaylistParser::parse_effects] Found effects (" +
                          number(found->effect || found->file == EffectsFile::WithoutFps ? 1 : 0) + ")");
    if (found->file == EffectsFile::WithoutFps) {
        log(kErrorLevel, "[PlaylistParser::parse_effects] Field 'fps' absent");
        return load_failed("Playlist effects file format invalid");
    }
    if (found->effect) {
        log_effect(*found->effect);
    }
    Loaded loaded;
    loaded.playlist = &*found;
    loaded.brightness = found->brightness;
    loaded_.push_back(loaded);
    log(kNormalLevel, "[Repeater::load_playlist] Playlist loaded (playlist_id:" + number(id) + ")");
    return true;
}

void ControlModel::log_effect(const ControlledEffect& effect) {
    const auto outputs = number(static_cast<int>(effect.outputs.size()));
    const auto zones = number(static_cast<int>(effect.zones.size()));
    log(kDetailLevel, "[PlaylistParser::parse_effects] Found outputs (" + outputs + ")");
    log(kNormalLevel, "[PlaylistParser::parse_outputs] Parse effect outputs");
    for (const ControlledEffect::Output& output : effect.outputs) {
        log(kDetailLevel,
            "[PlaylistParser::parse_effects] Parsed output (universe:" + number(output.universe) +
                ", address:(" + output.ip + ":" + number(output.port) + "))");
    }
    log(kDetailLevel, "[PlaylistParser::parse_effects] Found universes (" + zones + ")");
    log(kNormalLevel, "[PlaylistParser::parse_universes] Parse effect universes");
    for (const auto& [universe, zone] : effect.zones) {
        log(kDetailLevel, "[PlaylistParser::parse_effects] Parsed universe (id:" + number(universe) +
                              ", zone:" + number(zone) + ")");
    }
    log(kDetailLevel, "[PlaylistParser::parse_effects] Added effect (path:" + effect.path + ", fps:" +
                          number(effect.fps) + ", ppf:-1, outputs:" + outputs + ", universes:" + zones + ")");
}

bool ControlModel::pause(int id) {
    log(kNormalLevel, "[Repeater::pause_playlist] Pause playlist (playlist_id:" + number(id) + ")");
    if (loaded_.empty()) {
        log(kNormalLevel, "[Repeater::pause_playlist] No active cuelists");
        return false;
    }
    Loaded* const loaded = find(id);
    if (loaded == nullptr) {
        log(kNormalLevel, "[Repeater::pause_playlist] Cuelist is not active");
        return false;
    }
    loaded->raced = loaded->playlist->ends && loaded->running && !loaded->ended;
    loaded->running = false;
    return true;
}

void ControlModel::stop_playlist(int id) {
    log(kNormalLevel, "[Repeater::stop_playlist] Stop playlist (playlist_id:" + number(id) + ")");
    if (loaded_.empty()) {
        log(kNormalLevel, "[Repeater::stop_playlist] No active cuelists");
        return;
    }
    Loaded* const loaded = find(id);
    if (loaded == nullptr) {
        log(kNormalLevel, "[Repeater::stop_playlist] Cuelist is not active");
        return;
    }
    remember_race(*loaded);
    loaded_.erase(loaded_.begin() + (loaded - loaded_.data()));
}

bool ControlModel::init_zones(const std::vector<Zone>& zones) {
    for (const Zone& zone : zones) {
        if (zone.id < 0) {
            return false;
        }
    }
    if (!loaded_.empty()) {
        return false;
    }
    zones_.clear();
    for (const Zone& zone : zones) {
        zones_[zone.id] = zone;
    }
    return true;
}

bool ControlModel::add_zone(const Zone& zone) {
    if (!loaded_.empty() || zone.id < 0 || zones_.count(zone.id) != 0) {
        return false;
    }
    zones_[zone.id] = zone;
    return true;
}

bool ControlModel::update_zone(const Zone& zone) {
    if (!loaded_.empty() || zones_.count(zone.id) == 0) {
        return false;
    }
    zones_[zone.id] = zone;
    return true;
}

bool ControlModel::remove_zone(int id) {
    if (!loaded_.empty() || zones_.count(id) == 0) {
        return false;
    }
    zones_.erase(id);
    return true;
}

bool ControlModel::remove_all_zones() {
    if (!loaded_.empty()) {
        return false;
    }
    zones_.clear();
    return true;
}

bool ControlModel::ended(int id) {
    Loaded* const loaded = find(id);
    if (loaded != nullptr && loaded->playlist->ends && !loaded->ended && (loaded->running || loaded->raced)) {
        loaded->ended = true;
        loaded->raced = false;
        return true;
    }
    const auto stopped = std::find(stopped_.begin(), stopped_.end(), id);
    if (stopped == stopped_.end()) {
        return false;
    }
    stopped_.erase(stopped);
    return true;
}

void ControlModel::settle() {
    stopped_.clear();
    for (Loaded& loaded : loaded_) {
        loaded.raced = false;
    }
}

bool ControlModel::unsettled() const {
    return !stopped_.empty() ||
           std::any_of(loaded_.begin(), loaded_.end(), [](const Loaded& loaded) { return loaded.raced; });
}

bool ControlModel::will_end(int id) const {
    const Loaded* const loaded = find(id);
    return loaded != nullptr && loaded->playlist->ends && loaded->running && !loaded->ended;
}

std::vector<int> ControlModel::all_that_will_end() const {
    std::vector<int> ids;
    for (const Loaded& loaded : loaded_) {
        if (will_end(loaded.playlist->id)) {
            ids.push_back(loaded.playlist->id);
        }
    }
    return ids;
}

std::vector<std::uint8_t> ControlModel::levels_of(const Loaded& loaded,
                                                  const ControlledEffect::Look& look) const {
    std::vector<std::uint8_t> levels(kChannels);
    const auto& named = loaded.playlist->effect->zones;
    const auto entry = std::find_if(named.begin(), named.end(),
                                    [&look](const auto& pair) { return pair.first == look.universe; });
    const auto zone = entry == named.end() ? zones_.end() : zones_.find(entry->second);
    for (int channel = 0; channel < static_cast<int>(look.levels.size()); ++channel) {
        const auto place = static_cast<std::size_t>(channel);
        bool written = entry == named.end();
        if (zone != zones_.end()) {
            // Alone on its universe, a zone owns what it claims; one of priority -1 claims nothing and writes
            // what nobody owns.
            const std::vector<int>& channels = zone->second.channels;
            written = zone->second.priority >= -1 &&
                      std::find(channels.begin(), channels.end(), channel) != channels.end();
        }
        levels[place] = written ? static_cast<std::uint8_t>(look.levels[place] * loaded.brightness / 100)
                                : std::uint8_t{0};
    }
    return levels;
}

std::vector<Destination> ControlModel::destinations_of(const ControlledEffect& effect, int universe) const {
    std::vector<Destination> destinations;
    for (const ControlledEffect::Output& output : effect.outputs) {
        if (output.universe == universe) {
            destinations.push_back({output.ip, output.port});
        }
    }
    if (effect.outputs.empty()) {
        if (!unicast_) {
            destinations.push_back(broadcast);
        } else if (node_appearances_ > 0) {
            destinations.push_back(node);
        }
    }
    return destinations;
}

std::vector<Audible> ControlModel::audible() const {
    std::vector<Audible> result;
    for (const Loaded& loaded : loaded_) {
        if (!loaded.running || loaded.ended || loaded.playlist->ends) {
            continue;
        }
        const ControlledEffect& effect = *loaded.playlist->effect;
        for (const ControlledEffect::Look& look : effect.looks) {
            const bool muted = std::find(effect.zones.begin(), effect.zones.end(),
                                         std::pair(look.universe, kMuted)) != effect.zones.end();
            if (muted) {
                continue;
            }
            for (const Destination& to : destinations_of(effect, look.universe)) {
                result.push_back({to.port, look.universe, to.ip, static_cast<int>(look.levels.size()),
                                  levels_of(loaded, look)});
            }
        }
    }
    return result;
}

std::vector<int> ControlModel::uncertain_universes() const {
    std::vector<int> universes;
    for (const Loaded& loaded : loaded_) {
        if (will_end(loaded.playlist->id)) {
            for (const ControlledEffect::Look& look : loaded.playlist->effect->looks) {
                universes.push_back(look.universe);
            }
        }
    }
    return universes;
}

std::string ControlModel::state() const {
    std::string text;
    for (const Loaded& loaded : loaded_) {
        text += (text.empty() ? "" : ", ") + number(loaded.playlist->id) +
                (loaded.running ? loaded.ended ? " ended" : " plays"
                 : loaded.ended ? " ended and paused"
                                : " paused");
    }
    return (text.empty() ? "nothing loaded" : text) + "; " + std::to_string(zones_.size()) + " zones";
}

}  // namespace model
