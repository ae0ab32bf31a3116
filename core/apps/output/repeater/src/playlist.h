#pragma once
// One cue list in memory: settings, effects and the packets that the loader makes of their recordings.

#include <atomic>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <QString>

#include "ondra/read_write_lock.h"
#include "ondra/timing.h"
#include "stable_deque.h"

/**
 * The meeting point of a loader thread, which appends packets, and the render worker, which reads them.
 *
 * PlaylistParser fills the settings and effects before anybody else sees the object, PlaylistLoader fills
 * the packets. Owned by the Repeater; neither copied nor moved.
 */
class Playlist final {
public:
    /// One stored output packet.
    struct Packet {
        /// Art-Net port-address of the packet (SubUni + 256 * Net), counted from 0.
        int universe = 0;
        /// Complete ArtDmx packet in wire order, 18 to 530 bytes.
        std::vector<unsigned char> data;
        /// Time to wait after sending this packet; 0 within a frame.
        ondra::Clock::duration delay{0};
    };

    /// One destination of output. The binary address is kept ready, since a frame's key needs it.
    struct Address {
        Address() : Address(std::string(), 0) {}
        Address(std::string ip_text, int udp_port);

        /// IPv4 address in dotted form.
        std::string ip;
        /// UDP port.
        int port;
        /// inet_addr() of the text in host byte order; 0xFFFFFFFF for a text that it rejects.
        std::uint32_t ipv4;
    };

    /// One recording with its routing. Nothing changes it once it is part of a playlist.
    struct Effect {
        /// Universe to destinations; kAllUniverses holds those of every universe without an entry.
        using DestAddrMap = std::unordered_map<int, std::vector<Address>>;
        /// Universe to zone id.
        using UniZoneMap = std::unordered_map<int, int>;

        /// Recording, relative to the playlist's root directory.
        QString path;
        /// Frames per second; -1: the recording's own timing.
        int fps = -1;
        /// ArtDmx packets per frame; -1 when not given.
        int ppf = -1;
        DestAddrMap outputs;
        UniZoneMap universes;
        /// The loader finds the packets per frame from the recording.
        bool auto_ppf = false;
        /// Timing comes from fps, and timing packets in the recording are ignored.
        bool fixed_fps = false;
    };

    /// Key of DestAddrMap that stands for all other universes.
    static constexpr int kAllUniverses = -1;
    /// Zone of a universe that belongs to none.
    static constexpr int kNoZone = -1;

    Playlist() = default;
    Playlist(const Playlist&) = delete;
    Playlist& operator=(const Playlist&) = delete;

    [[nodiscard]] int id() const { return id_; }
    [[nodiscard]] bool loop_mode() const { return loop_; }
    [[nodiscard]] const QString& get_root_dir() const { return root_dir_; }
    void set_root_dir(const QString& path) { root_dir_ = path; }

    /// Percent, any int: only the bus methods clamp. Any thread.
    [[nodiscard]] int get_brightness() const noexcept { return brightness_.load(std::memory_order_relaxed); }
    void set_brightness(int percent) { brightness_.store(percent, std::memory_order_relaxed); }
    /// Percent, any int. Any thread.
    [[nodiscard]] int get_speed_boost() const noexcept {
        return speed_boost_.load(std::memory_order_relaxed);
    }
    void set_speed_boost(int percent) { speed_boost_.store(percent, std::memory_order_relaxed); }

    /// In playing order. Not changed once loading has started.
    [[nodiscard]] const std::vector<Effect>& effects() const { return effects_; }
    /// Appends an effect. Before loading starts, on the thread that will start it.
    void add_effect(Effect effect) { effects_.push_back(std::move(effect)); }

    /// Appends a packet. Loader thread. Takes lock_ as writer.
    void add_packet(const Packet& packet) ONDRA_EXCLUDES(lock_);
    void add_packet(Packet&& packet) ONDRA_EXCLUDES(lock_);

    /// Number of packets stored so far. Any thread.
    [[nodiscard]] int packets_loaded() const noexcept {
        return packet_count_.load(std::memory_order_acquire);
    }

    /**
     * Copies packet `index` into `out`, reusing the buffer of `out`.
     *
     * False, with `out` untouched, for an index that is negative or not stored yet. Any thread. Takes lock_
     * as reader.
     */
    [[nodiscard]] bool packet(int index, Packet& out) const ONDRA_EXCLUDES(lock_);

    /**
     * Finds the routing of packet `index`, 0 to packets_loaded() - 1.
     *
     * @param addresses  first destination, or null when there is none; valid as long as the playlist
     * @param count      number of destinations
     * @param zone       zone id of the packet's universe, kNoZone when it has none
     * False, with the outputs untouched, when no effect holds the packet. Render worker; takes no lock,
     * since stored packets never move, effects do not change and the ranges are read atomically.
     */
    [[nodiscard]] bool packet_info(int index, const Address** addresses, int& count, int& zone) const;

private:
    friend class PlaylistParser;
    friend class PlaylistLoader;
    friend struct PlaylistAccess;  // test support

    /// Index into effects_ of the effect that packet `index` belongs to; effects_.size() or more if none
    /// does.
    [[nodiscard]] int effect_of(int index) const;

    std::vector<Effect> effects_;
    /// Appended to under lock_ as writer by the loader thread. Read by the render worker: packet() under
    /// lock_ as reader, packet_info() without it, which the store allows.
    StableDeque<Packet> packets_;
    /// Effects read completely. Written by the loader thread.
    std::atomic<int> loaded_effects_{0};
    /// Per effect, index of its last packet stored so far, -1 while it has none. Sized before loading; the
    /// entries are accessed through std::atomic_ref: written by the loader thread, read by the render worker.
    mutable std::vector<int> effect_end_;
    /// Number of packets; a release store publishes the packet before it. Written by the loader thread.
    std::atomic<int> packet_count_{0};
    /// Guards packets_.
    mutable ondra::ReadWriteLock lock_;
    QString root_dir_;
    int id_ = -1;
    bool loop_ = true;
    /// Written by the main thread, read by the render worker.
    std::atomic<int> brightness_{100};
    std::atomic<int> speed_boost_{0};
};
