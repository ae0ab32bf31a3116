#pragma once
// The playback engine, and the object that the control interface exports on the bus.

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include <QObject>
#include <QString>

#include "merge_packet.h"
#include "ondra/artnet_node_map.h"
#include "ondra/net/udp_socket.h"
#include "ondra/read_write_lock.h"
#include "ondra/thread_annotations.h"
#include "playlist_desc.h"
#include "zone.h"

/**
 * Owns the loaded playlists, the zones, the merged frames and the render worker that sends them.
 *
 * There is one, built by main(). Everything public runs on the main thread, the one that owns the object;
 * its slots are the bus methods. Only the render worker, started by the constructor and joined by the
 * destructor, sends. Sources by concern: repeater.cpp (life, setters, stop), repeater_zones.cpp,
 * repeater_merge.cpp, repeater_control.cpp (main thread), repeater_render.cpp and repeater_output.cpp
 * (render worker).
 *
 * Final: the worker starts in the constructor and must not meet a half-built subclass.
 */
class Repeater final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.torvexserver.Cuewright")

public:
    Repeater();
    ~Repeater() override;
    Repeater(const Repeater&) = delete;
    Repeater& operator=(const Repeater&) = delete;

    /// Directory under which the playlist files lie; not checked. Before the first load.
    void set_root_dir(const QString& path);
    /// Description file, relative to the root directory; not checked. Before the first load.
    void set_playlist_desc_path(const QString& path);

public Q_SLOTS:
    /// Stops and unloads every playlist. Waits for their loaders without a time-out. What was last sent
    /// stands.
    void stop() ONDRA_EXCLUDES(lock_);
    /// Whether output without destinations goes to the known nodes (the default) or to the broadcast address.
    void set_unicast_enabled(bool enabled) ONDRA_EXCLUDES(lock_);

    /// Percent, clamped to 0 to 100; from the next packet on.
    void set_brightness(int playlist_id, int brightness) ONDRA_EXCLUDES(lock_);
    /// Percent, clamped to 0 to 100; from the next packet interval on.
    void set_speed_boost(int playlist_id, int speed_boost) ONDRA_EXCLUDES(lock_);
    /// Plays, loading it first if need be: then it blocks until the first packets are there. False when it
    /// cannot be loaded or has no packets.
    bool play_playlist(int playlist_id) ONDRA_EXCLUDES(lock_);
    /// Halts a loaded playlist where it is; false when it is not loaded.
    bool pause_playlist(int playlist_id) ONDRA_EXCLUDES(lock_);
    /// Stops and unloads one playlist. Waits for its loader without a time-out.
    void stop_playlist(int playlist_id) ONDRA_EXCLUDES(lock_);

    // Zones change only while no playlist is loaded; each returns false, changing nothing, when it refuses.
    /// Replaces all zones; of equal ids the last one stays. Refuses negative ids.
    bool init_zones(const std::vector<Zone>& zones) ONDRA_EXCLUDES(lock_);
    /// Refuses a known or negative id.
    bool add_zone(const Zone& zone) ONDRA_EXCLUDES(lock_);
    /// Refuses an unknown id.
    bool update_zone(const Zone& zone) ONDRA_EXCLUDES(lock_);
    /// Refuses an unknown id.
    bool remove_zone(int id) ONDRA_EXCLUDES(lock_);
    bool remove_all_zones() ONDRA_EXCLUDES(lock_);

Q_SIGNALS:
    /// A playlist that does not loop has reached its end. Emitted on the main thread.
    void OnPlaylistStopped(int playlist_id);

private Q_SLOTS:
    /// Takes one message of the discovery service. Main thread; takes node_map_mutex_ only.
    void update_artnet_node_map(const QString& message);

private:
    friend struct RepeaterAccess;  // test support

    using Address = Playlist::Address;
    using OwnerAction = std::function<void(int universe, const Address* destination, const Zone& zone)>;

    // repeater.cpp, main thread.
    /// Asks all loaders to end and waits until they have; no time-out.
    void end_loading();

    // repeater_control.cpp, main thread.
    /// Loads a playlist and appends it to the list; does not look whether it is there already.
    bool load_playlist(int playlist_id) ONDRA_EXCLUDES(lock_);
    /// The part of play_playlist() for a playlist that is not loaded.
    bool load_and_play(int playlist_id) ONDRA_EXCLUDES(lock_);
    /// The first record with this id, or null.
    [[nodiscard]] PlaylistDesc* find_playlist(int playlist_id);
    [[nodiscard]] bool nothing_loaded() const;
    [[nodiscard]] PlaylistDesc& last_playlist();
    /// Takes a record out of the list, to be destroyed once the lock is released.
    [[nodiscard]] std::unique_ptr<PlaylistDesc> take_out(const PlaylistDesc& desc) ONDRA_REQUIRES(lock_);

    // repeater_merge.cpp. The frame handed out may be the blank one, which the next call zeroes.
    MergePacket& get_merge_packet(int universe, const Address* destination) ONDRA_REQUIRES_SHARED(lock_);
    MergePacket& init_merge_packet(int universe, const Address* destination) ONDRA_REQUIRES(lock_);
    void delete_merge_packet(int universe, const Address* destination) ONDRA_REQUIRES(lock_);
    /// Calls `action` for each universe, destination and known zone that the playlist's effects name.
    void modify_merge_packet_owner(const Playlist& playlist, const OwnerAction& action) ONDRA_REQUIRES(lock_);
    void add_merge_packet_owner(const Playlist& playlist) ONDRA_REQUIRES(lock_);
    void remove_merge_packet_owner(const Playlist& playlist) ONDRA_REQUIRES(lock_);
    void add_owner(int universe, const Address* destination, const Zone& zone) ONDRA_REQUIRES(lock_);
    void remove_owner(int universe, const Address* destination, const Zone& zone) ONDRA_REQUIRES(lock_);
    /// Writes one recorded packet into a frame. Render worker. `playlist_id` is not used.
    void modify_packet(MergePacket& merge_packet, const std::vector<unsigned char>& data, int playlist_id,
                       int brightness, int zone_id) ONDRA_REQUIRES_SHARED(lock_);

    // repeater_render.cpp, render worker. Caller holds lock_ as reader unless it says otherwise.
    /// The worker's body; takes lock_ as reader for its whole run.
    void do_render_work() ONDRA_EXCLUDES(lock_);
    /// Starts what was asked to play.
    void take_up_requests() ONDRA_REQUIRES_SHARED(lock_);
    /// The playing record that is due first, the earlier in the list of two; null when nothing plays.
    [[nodiscard]] PlaylistDesc* next_due() ONDRA_REQUIRES_SHARED(lock_);
    /**
     * Spins until the record is due, however long that is: it is the recording that says it. Rehearses
     * shortly before.
     *
     * A rehearsal goes the way of a frame up to the send call and puts the merged frame back; nothing is sent
     * or logged, and what changes until the frame is due still counts. A worker that only
     * looks at the clock from one frame to the next finds memory and code gone cold when the next one is due:
     * up to 4 frames of 100 then left more than 100 us late (docs/performance.md). Touching the stored
     * packets alone did not help.
     *
     * @param packet  scratch
     */
    void wait_until_due(const PlaylistDesc& next, Playlist::Packet& packet) ONDRA_REQUIRES_SHARED(lock_);
    /// Rehearses what is due next of one record that is loaded whole, as far as there is time until `end`.
    void rehearse(const PlaylistDesc& desc, Playlist::Packet& packet, ondra::Clock::time_point end)
        ONDRA_REQUIRES_SHARED(lock_);
    /// Copies the node map over if it has changed.
    void refresh_node_map();
    /// Sends what is due of one record; true when it has just come to its end.
    [[nodiscard]] bool send_due_packets(PlaylistDesc& desc, Playlist::Packet& packet)
        ONDRA_REQUIRES_SHARED(lock_);

    // repeater_output.cpp, render worker. Caller holds lock_ as reader.
    /// Merges and sends one stored packet; true when everything that it tried to send was sent. In a
    /// rehearsal leaves the merged frame as it was and sends nothing; the result means nothing then.
    [[nodiscard]] bool send_packet(const Playlist& playlist, int index, const Playlist::Packet& packet)
        ONDRA_REQUIRES_SHARED(lock_);
    bool send_to_destinations(const Playlist& playlist, const Playlist::Packet& packet, int zone,
                              std::span<const Address> destinations) ONDRA_REQUIRES_SHARED(lock_);
    bool send_to_nodes(const Playlist& playlist, const Playlist::Packet& packet, int zone)
        ONDRA_REQUIRES_SHARED(lock_);
    /// The bytes of the frame of the packet's universe and destination with the packet written into it; in a
    /// rehearsal a copy of them, and the frame is as before. Valid until the next call.
    const DmxPacket& merge(const Playlist& playlist, const Playlist::Packet& packet, int zone,
                           const Address* destination) ONDRA_REQUIRES_SHARED(lock_);
    /// Hands one frame to the local forwarder. True when the send call reported no error. A rehearsal stops
    /// short of that call and returns whether there is time for another datagram.
    [[nodiscard]] bool send_to_address(const DmxPacket& packet, const Address& address) const;

    /// Made and destroyed by the render worker, which alone uses it.
    std::unique_ptr<ondra::net::UdpSocket> socket_;
    /// Set by the constructor before the worker starts, constant from then on.
    std::string broadcast_ip_;
    bool unicast_enabled_ ONDRA_GUARDED_BY(lock_) = true;
    /// Main thread only.
    QString root_dir_;
    /// Main thread only.
    QString playlist_desc_path_;
    /// Cleared by the destructor with release, read by the render worker at the top of each cycle.
    std::atomic<bool> running_{true};
    std::thread render_thread_;
    /**
     * Guards playlists_ and in its records the flags, position and due time, zones_, merge_packets_ and
     * unicast_enabled_. First in the lock order; node_map_mutex_ and a playlist's own lock come after it.
     *
     * The render worker is its only reader, and the main thread takes it only as writer. That is why the
     * worker may write flags, positions, due times and frames while it holds the lock as reader: nobody else
     * is inside then. A second reader would need another lock.
     */
    ondra::ReadWriteLock lock_;
    /// The loaded playlists in load order. Only the main thread adds and removes, so it may look without the
    /// lock.
    std::vector<std::unique_ptr<PlaylistDesc>> playlists_ ONDRA_GUARDED_BY(lock_);
    /// Set by the main thread with release after a change of pending_node_map_, cleared by the render worker.
    std::atomic<bool> node_map_changed_{false};
    /// Guards pending_node_map_. Comes after lock_.
    std::mutex node_map_mutex_;
    /// The render worker's own copy.
    ondra::ArtnetNodeMap node_map_;
    /// Guarded by node_map_mutex_.
    ondra::ArtnetNodeMap pending_node_map_;
    std::unordered_map<int, Zone> zones_ ONDRA_GUARDED_BY(lock_);
    std::unordered_map<std::int64_t, MergePacket> merge_packets_ ONDRA_GUARDED_BY(lock_);
    /// What frames without zones are written into; never owned. Guarded by lock_.
    MergePacket blank_merge_packet_;
    /// During a rehearsal, the moment at which it has to end. Render worker only.
    std::optional<ondra::Clock::time_point> rehearsal_end_;
    /// What the last rehearsed datagram would have held. Render worker only.
    DmxPacket rehearsed_packet_{};
    /// Destination of broadcast output. Constant once the worker runs.
    Address broadcast_address_;
    /// Destination of unicast output, kept so that its text reuses its memory; text and port only, no binary
    /// address: nodes share the frame without destination. Render worker only.
    Address node_address_;
};
