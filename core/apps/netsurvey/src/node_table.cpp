#include "node_table.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include <netinet/in.h>

namespace netsurvey {

namespace {

/// Some nodes store their port high byte first.
constexpr std::uint16_t kSwappedPort = 0x3619;
constexpr std::uint32_t kLoopbackNet = 127;

bool can_be_a_host(std::uint32_t address) {
    const std::uint32_t net = address >> 24;
    return net != 0 && !IN_MULTICAST(address) && address != INADDR_BROADCAST;
}

/// A node that does not know its own address yet, or tells nonsense, is where its reply came from.
std::uint32_t address_of(const ArtPollReply& reply, std::uint32_t sender) {
    const std::uint32_t told = std::uint32_t{reply.IpAddress[0]} << 24 |
                               std::uint32_t{reply.IpAddress[1]} << 16 |
                               std::uint32_t{reply.IpAddress[2]} << 8 | std::uint32_t{reply.IpAddress[3]};
    const bool points_to_us = told >> 24 == kLoopbackNet && sender >> 24 != kLoopbackNet;
    return can_be_a_host(told) && !points_to_us ? told : sender;
}

std::uint16_t port_of(const ArtPollReply& reply) {
    const std::uint16_t told = reply.Port;
    return told == 0 || told == kSwappedPort ? artnet::kPort : told;
}

/// A name from the network, fit for a terminal: ASCII and what may be UTF-8, no control characters.
std::string printable(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size() && text[i] != '\0'; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        // C2 80 to C2 9F are the control characters beyond ASCII.
        const bool control = byte < 0x20 || byte == 0x7F ||
                             (byte == 0xC2 && i + 1 < text.size() &&
                              (static_cast<unsigned char>(text[i + 1]) & 0xE0U) == 0x80U);
        if (control && byte == 0xC2) {
            ++i;
        }
        result += control ? '?' : text[i];
    }
    return result;
}

template <std::size_t Size>
std::string printable(const char (&field)[Size]) {
    return printable(std::string_view(field, Size));
}

}  // namespace

NodeTable::Entry* NodeTable::entry(const Key& key) {
    const auto known = entries_.find(key);
    if (known != entries_.end()) {
        return &known->second;
    }
    if (entries_.size() >= kMaxEntries) {
        ++refused_;
        return nullptr;
    }
    return &entries_[key];
}

void NodeTable::take_up(const Key& key, const std::vector<std::uint16_t>& universes, Changes& changes) {
    for (const std::uint16_t universe : universes) {
        const NodeRecord record{universe, key.address, key.port};
        if (++holders_[record] == 1) {
            changes.push_back({true, record});
        }
    }
}

void NodeTable::give_up(const Key& key, const std::vector<std::uint16_t>& universes, Changes& changes) {
    for (const std::uint16_t universe : universes) {
        const NodeRecord record{universe, key.address, key.port};
        const auto holders = holders_.find(record);
        if (--holders->second == 0) {
            holders_.erase(holders);
            changes.push_back({false, record});
        }
    }
}

void NodeTable::replace(const Key& key, Entry& entry, const std::vector<std::uint16_t>& universes,
                        Changes& changes) {
    std::vector<std::uint16_t> gone;
    std::vector<std::uint16_t> come;
    std::ranges::set_difference(entry.universes, universes, std::back_inserter(gone));
    std::ranges::set_difference(universes, entry.universes, std::back_inserter(come));
    give_up(key, gone, changes);
    take_up(key, come, changes);
    entry.universes = universes;
}

Changes NodeTable::add_static(const StaticNode& node) {
    Changes changes;
    const Key key{node.address, node.port, 0, Source::Static, 0, node.universes};
    if (Entry* const added = entry(key)) {
        added->short_name = printable(node.name);
        replace(key, *added, node.universes, changes);
    }
    return changes;
}

Changes NodeTable::remember(const NodeRecord& record, Clock::time_point now) {
    Changes changes;
    const Key key{record.address, record.port, 0, Source::Remembered, 0, {record.universe}};
    if (Entry* const remembered = entry(key)) {
        remembered->heard = now;
        remembered->polls = polls_;
        replace(key, *remembered, key.universes, changes);
    }
    return changes;
}

Changes NodeTable::hear(const ArtPollReply& reply, std::uint32_t sender, Clock::time_point now) {
    Changes changes;
    const std::vector<std::uint16_t> universes = artnet::output_universes(reply);
    Key key{address_of(reply, sender), port_of(reply), reply.BindIndex, Source::Reply, sender, {}};
    if (key.bind_index == 0) {
        key.universes = universes;
    }
    if (Entry* const heard = entry(key)) {
        heard->short_name = printable(reply.ShortName);
        heard->long_name = printable(reply.LongName);
        heard->heard = now;
        heard->polls = polls_;
        replace(key, *heard, universes, changes);
    }
    return changes;
}

Changes NodeTable::expire(Clock::time_point now) {
    Changes changes;
    std::erase_if(entries_, [&](const auto& item) {
        const auto& [key, entry] = item;
        const bool gone = key.source != Source::Static && now - entry.heard >= expiry_ &&
                          polls_ - entry.polls >= kUnansweredPolls;
        if (gone) {
            give_up(key, entry.universes, changes);
        }
        return gone;
    });
    return changes;
}

std::vector<NodeRecord> NodeTable::present() const {
    std::vector<NodeRecord> records;
    records.reserve(holders_.size());
    for (const auto& [record, count] : holders_) {
        records.push_back(record);
    }
    return records;
}

std::vector<NodeView> NodeTable::nodes(Clock::time_point now) const {
    std::vector<NodeView> views;
    views.reserve(entries_.size());
    for (const auto& [key, entry] : entries_) {
        // A memory has done its part once the node has answered.
        if (key.source == Source::Remembered &&
            holders_.at({entry.universes.front(), key.address, key.port}) > 1) {
            continue;
        }
        NodeView view{.source = key.source,
                      .address = key.address,
                      .port = key.port,
                      .bind_index = key.bind_index,
                      .short_name = entry.short_name,
                      .long_name = entry.long_name,
                      .universes = entry.universes};
        if (key.source != Source::Static) {
            view.silent = std::chrono::duration_cast<std::chrono::milliseconds>(now - entry.heard);
        }
        views.push_back(std::move(view));
    }
    return views;
}

}  // namespace netsurvey
