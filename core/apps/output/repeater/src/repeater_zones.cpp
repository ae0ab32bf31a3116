// The engine's zones. Main thread; each operation holds lock_ as writer from its first check to its last
// change.

#include "repeater.h"

#include <algorithm>

bool Repeater::init_zones(const std::vector<Zone>& zones) {
    const ondra::WriterGuard guard{lock_};
    const auto negative = [](const Zone& zone) { return zone.id < 0; };
    if (!playlists_.empty() || std::any_of(zones.begin(), zones.end(), negative)) {
        return false;
    }
    zones_.clear();
    for (const Zone& zone : zones) {
        zones_.insert_or_assign(zone.id, zone);
    }
    return true;
}

bool Repeater::add_zone(const Zone& zone) {
    const ondra::WriterGuard guard{lock_};
    if (!playlists_.empty() || zone.id < 0) {
        return false;
    }
    return zones_.emplace(zone.id, zone).second;
}

bool Repeater::update_zone(const Zone& zone) {
    const ondra::WriterGuard guard{lock_};
    const auto stored = zones_.find(zone.id);
    if (!playlists_.empty() || stored == zones_.end()) {
        return false;
    }
    stored->second = zone;
    return true;
}

bool Repeater::remove_zone(int id) {
    const ondra::WriterGuard guard{lock_};
    return playlists_.empty() && zones_.erase(id) > 0;
}

bool Repeater::remove_all_zones() {
    const ondra::WriterGuard guard{lock_};
    if (!playlists_.empty()) {
        return false;
    }
    zones_.clear();
    return true;
}
