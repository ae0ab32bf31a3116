#pragma once
// Turns changes of the node table into the messages that a player can apply, whatever it knows already.

#include <set>
#include <span>
#include <string>

#include "node_record.h"

namespace netsurvey {

/**
 * Words the messages.
 *
 * The player keeps a list a universe. It adds a node without looking whether it has it, and takes one copy
 * out on a removal, which does nothing when there is none. So "removed and added" leaves one copy, whatever
 * was there, and is what a player gets whose knowledge is in doubt: one that has just come (it may or may not
 * have heard what was sent while it started), and one that was there before this discovery and may have been
 * told of the same nodes by an earlier one. Not for several threads.
 */
class Announcer {
public:
    /// A player was there already when this discovery began.
    void player_was_there() { inherited_ = true; }
    /// That player has gone, or another one has taken its name: it knows nothing from before our time.
    void player_has_gone();

    /// The message of these changes, empty without any.
    [[nodiscard]] std::string announce(std::span<const Change> changes);
    /// The message that brings any player's knowledge of these records in order: a removal and an addition of
    /// each. @param present  all records
    [[nodiscard]] std::string announce_all(std::span<const NodeRecord> present);

private:
    /// Whether the player may hold records of an earlier discovery.
    bool inherited_ = false;
    /// While inherited_: the records that the player has been told of by this discovery.
    std::set<NodeRecord> told_;
};

}  // namespace netsurvey
