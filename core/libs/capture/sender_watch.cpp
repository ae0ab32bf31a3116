#include "capture/sender_watch.h"

#include <algorithm>

namespace capture {

SenderWatch::Sender& SenderWatch::sender_of(Universe& universe, const Endpoint& endpoint, bool& known) {
    const auto found = std::ranges::find(universe.senders, endpoint, &Sender::endpoint);
    known = found != universe.senders.end();
    if (known) {
        return *found;
    }
    if (universe.senders.size() < kMostSenders) {
        return universe.senders.emplace_back(Sender{endpoint, {}});
    }
    Sender& oldest = *std::ranges::min_element(universe.senders, {}, &Sender::last);
    oldest = {endpoint, {}};
    return oldest;
}

std::optional<SenderConflict> SenderWatch::add(std::uint16_t universe, const Endpoint& sender,
                                               std::chrono::nanoseconds time) {
    Universe& state = universes_[universe];
    bool known = false;
    Sender& own = sender_of(state, sender, known);
    std::optional<SenderConflict> fresh;
    if (known && state.latest != sender && time - own.last <= kWindow) {
        state.last_conflict = time;
        const auto pair = std::minmax(state.latest, sender);
        const std::pair<Endpoint, Endpoint> ends{pair.first, pair.second};
        if (std::ranges::find(state.conflicts, ends) == state.conflicts.end() &&
            state.conflicts.size() < kMostSenders) {
            state.conflicts.push_back(ends);
            fresh = SenderConflict{universe, ends.first, ends.second};
        }
    }
    own.last = time;
    state.latest = sender;
    return fresh;
}

bool SenderWatch::conflicting(std::uint16_t universe, std::chrono::nanoseconds now) const {
    const auto found = universes_.find(universe);
    return found != universes_.end() && found->second.last_conflict &&
           now - *found->second.last_conflict <= kWindow;
}

std::vector<SenderConflict> SenderWatch::conflicts() const {
    std::vector<SenderConflict> all;
    for (const auto& [universe, state] : universes_) {
        for (const auto& [first, second] : state.conflicts) {
            all.push_back({universe, first, second});
        }
    }
    return all;
}

}  // namespace capture
