#pragma once
// Which nodes are there: replies and time go in, changes come out.

#include <chrono>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "artnet/poll.h"
#include "node_record.h"

namespace netsurvey {

/// A device that answers no polls, from the file of static nodes.
struct StaticNode {
    std::uint32_t address = 0;
    std::uint16_t port = artnet::kPort;
    std::string name;
    /// Ascending, each once.
    std::vector<std::uint16_t> universes;
};

/// Where the table's knowledge of a node comes from.
enum class Source {
    Reply,       ///< its ArtPollReply
    Static,      ///< the file of static nodes
    Remembered,  ///< an earlier run of the discovery; no reply yet in this one
};

/// One line of the list of nodes: a reply, that is up to four ports of a node, or a static node.
struct NodeView {
    Source source = Source::Reply;
    std::uint32_t address = 0;
    std::uint16_t port = 0;
    /// 0 where the node gives none.
    unsigned bind_index = 0;
    /// Without control characters, whatever a node sends.
    std::string short_name;
    std::string long_name;
    /// Of its output ports; a node without any is listed all the same.
    std::vector<std::uint16_t> universes;
    /// Since the last reply; 0 for a static node.
    std::chrono::milliseconds silent{0};
};

/**
 * The nodes of a network, kept up to date from their replies.
 *
 * A record is present while at least one reply, static node or memory of an earlier run holds it; a change is
 * given out only when the first begins or the last one ends to do so. A reply holds what it says until the
 * next one of the same node and bind index, or until it is too old. Time comes in with each call and never
 * goes back. Not for several threads.
 */
class NodeTable {
public:
    using Clock = std::chrono::steady_clock;

    /// Replies, memories and static nodes together; what comes beyond is not taken in, so that nobody can
    /// fill the memory by inventing nodes.
    static constexpr std::size_t kMaxEntries = 8192;
    /// Polls that must have gone unanswered besides: time in which nothing was asked makes no node old.
    static constexpr unsigned kUnansweredPolls = 2;

    /// @param expiry  how long after its last reply a node is gone
    explicit NodeTable(Clock::duration expiry) : expiry_(expiry) {}

    [[nodiscard]] Changes add_static(const StaticNode& node);
    /// What an earlier run had announced; counts as heard at `now`.
    [[nodiscard]] Changes remember(const NodeRecord& record, Clock::time_point now);
    /// @param sender  address that the reply came from, host byte order
    [[nodiscard]] Changes hear(const ArtPollReply& reply, std::uint32_t sender, Clock::time_point now);
    /// A poll has been sent, or could not be.
    void count_poll() { ++polls_; }
    /// Drops what is too old.
    [[nodiscard]] Changes expire(Clock::time_point now);

    /// All records, ascending.
    [[nodiscard]] std::vector<NodeRecord> present() const;
    /// All nodes by address, port and bind index.
    [[nodiscard]] std::vector<NodeView> nodes(Clock::time_point now) const;
    /// Replies that found no room.
    [[nodiscard]] std::size_t refused() const { return refused_; }

private:
    /// Whose word an entry is. Addresses come first, so that the list is in their order.
    struct Key {
        std::uint32_t address = 0;
        std::uint16_t port = 0;
        unsigned bind_index = 0;
        Source source = Source::Reply;
        std::uint32_t sender = 0;
        /// Told apart by these, too, where there is no bind index: old nodes with more than four ports send
        /// several replies that differ in nothing else.
        std::vector<std::uint16_t> universes;

        auto operator<=>(const Key&) const = default;
    };
    struct Entry {
        std::string short_name;
        std::string long_name;
        std::vector<std::uint16_t> universes;
        Clock::time_point heard;
        /// polls_ at that time.
        std::uint64_t polls = 0;
    };

    Entry* entry(const Key& key);
    void take_up(const Key& key, const std::vector<std::uint16_t>& universes, Changes& changes);
    void give_up(const Key& key, const std::vector<std::uint16_t>& universes, Changes& changes);
    /// Puts an entry's universes in the place of those that it has.
    void replace(const Key& key, Entry& entry, const std::vector<std::uint16_t>& universes, Changes& changes);

    Clock::duration expiry_;
    std::uint64_t polls_ = 0;
    std::size_t refused_ = 0;
    std::map<Key, Entry> entries_;
    /// How many entries hold each present record.
    std::map<NodeRecord, std::size_t> holders_;
};

}  // namespace netsurvey
