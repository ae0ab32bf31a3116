#pragma once
// What merging and routing must do, in plain and slow code: who owns a channel is worked out anew each time.

#include <bitset>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "show_records.h"

namespace model {

/// The merged frames, the zones and the routing of a model engine. No thread, no clock.
class MergeModel {
public:
    /// Says for each datagram whether the network takes it.
    using Network = std::function<bool(const Sent& sent)>;

    std::map<int, Zone> zones;
    /// Per universe, address and port of its nodes in the order in which they are served.
    std::map<int, std::vector<Destination>> nodes;
    bool unicast = true;
    Destination broadcast;

    /// The playlist's zones take their channels, where its universes go.
    void take(const Playlist& playlist);
    /// The reverse; what was not taken is passed over.
    void give_back(const Playlist& playlist);
    void clear() { frames_.clear(); }

    /// Merges and sends one packet; false when it went nowhere or was not taken.
    bool send(const Playlist& playlist, const Packet& packet, int brightness, const Network& network);

    [[nodiscard]] std::size_t frame_count() const { return frames_.size(); }
    /// Whether, in any frame now, two different zones claim the same channel.
    [[nodiscard]] bool zones_overlap() const;

private:
    using Channels = std::bitset<kChannels>;

    /// What tells one frame from another.
    struct Name {
        int universe = 0;
        int port = 0;
        std::uint32_t ip = 0;
        bool operator==(const Name&) const = default;
    };
    struct Claim {
        int zone = 0;
        /// Whether the zone was there when the claims of its frame were last counted.
        bool counts = true;
        int priority = 0;
        Channels channels;
    };
    struct Entry {
        Name name;
        Frame frame{};
        std::vector<Claim> claims;
    };
    struct Claiming {
        Name name;
        Zone zone;
    };

    static Name name_of(int universe, const Destination* destination);
    /// Every frame that the playlist's zones claim, once per claim.
    std::vector<Claiming> claims_of(const Playlist& playlist) const;
    Entry* find(const Name& name);
    /// The real channels among those that a zone lists.
    static Channels channels_of(const Zone& zone);
    static int owner(const Entry& entry, int channel);
    void write(Entry& entry, const std::vector<std::uint8_t>& bytes, int brightness, int zone) const;
    /// The frame as it goes out once the packet is in it.
    Frame merged(const Packet& packet, const Destination* destination, int brightness, int zone);

    std::vector<Entry> frames_;
};

/// Destinations of a universe: its own, those of all others, or null for neither.
const std::vector<Destination>* destinations_of(const Effect& effect, int universe);

}  // namespace model
