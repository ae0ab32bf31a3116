#include "announcer.h"

namespace netsurvey {

void Announcer::player_has_gone() {
    inherited_ = false;
    told_.clear();
}

std::string Announcer::announce(std::span<const Change> changes) {
    Changes worded;
    for (const Change& change : changes) {
        if (inherited_ && told_.insert(change.record).second && change.present) {
            worded.push_back({false, change.record});
        }
        worded.push_back(change);
    }
    return to_message(worded);
}

std::string Announcer::announce_all(std::span<const NodeRecord> present) {
    Changes worded;
    for (const NodeRecord& record : present) {
        worded.push_back({false, record});
        worded.push_back({true, record});
        if (inherited_) {
            told_.insert(record);
        }
    }
    return to_message(worded);
}

}  // namespace netsurvey
