#pragma once
// Turns a playlist's recordings into timed packets, in the background.

#include <atomic>
#include <thread>

#include "ondra/timing.h"
#include "playlist.h"

struct ArtDmx;
class ArtNetParser;

/**
 * Reads the effects of one Playlist in order on a thread of its own, the loader thread.
 *
 * Started by the main thread; playback may begin once ready is raised, while the rest still loads. The
 * destructor ends and joins the thread, which notices a stop at the recording's next ArtDmx packet; a FIFO
 * without a writer keeps it waiting without bound, as any reader of one. Owned by the PlaylistDesc.
 */
class PlaylistLoader final {
public:
    PlaylistLoader() = default;
    ~PlaylistLoader();
    PlaylistLoader(const PlaylistLoader&) = delete;
    PlaylistLoader& operator=(const PlaylistLoader&) = delete;

    /**
     * Ends a load that is still going on, empties the playlist's packets and starts loading them anew.
     *
     * `playlist` must outlive the load. Main thread. Throws std::system_error when no thread can be had.
     */
    void start(Playlist& playlist);

    /// Asks the loader thread to end; does not wait. Any thread.
    void stop() noexcept;

    /// Blocks, yielding, until more than 50 ms of packets are stored or the load has ended. No time-out.
    void wait_ready() const;

    /// True when the loader thread has finished; what it stored is then visible (acquire). Any thread.
    [[nodiscard]] bool done() const noexcept { return done_flag_.load(std::memory_order_acquire); }

private:
    static constexpr std::size_t kCacheLine = 64;

    /// What belongs to the effect being loaded. Loader thread only.
    struct EffectLoad;

    /// The thread's body.
    void load_playlist(Playlist& playlist);
    /// Loads one effect; false on a parse error, which ends the whole load.
    bool load_effect(Playlist& playlist, int effect_index);
    /// Stores pending_ if there is one; true if a packet was stored. `frame_end` marks the end of a frame.
    bool flush_pending_packet(Playlist& playlist, int effect_index, bool frame_end);
    /// Takes one ArtDmx packet of the recording: stores the pending one, then keeps this one back.
    void take_dmx(EffectLoad& load, ArtNetParser& parser, ArtDmx& dmx);
    void raise_ready();
    /// Keeps room in the thread's heap for the packet that is stored next.
    void make_room(std::size_t size);

    /// True while loading is allowed to go on. Written by the main and the loader thread, read by both.
    std::atomic<bool> running_{false};
    /// Written by the loader thread at its end with release, which publishes all that it stored.
    std::atomic<bool> done_flag_{false};
    std::thread thread_;
    /// Makes ready_ rise once. Loader thread, and start() while no thread runs, as all that follows ready_.
    bool ready_latch_ = false;
    /// Written by the loader thread, read by the main thread.
    std::atomic<bool> ready_{false};
    /// Apart from what is above: the main thread looks at ready_ without a pause while it waits, and would
    /// take the cache line from the loader thread with every packet.
    alignas(kCacheLine) bool pending_valid_ = false;
    /// The last ArtDmx packet read, held back until its delay is known.
    Playlist::Packet pending_;
    /// Sum of the delays of all stored packets; saturates.
    ondra::Clock::duration loaded_time_{0};
    /// Bytes allocated for packets since the thread's heap was made larger.
    std::size_t stored_bytes_ = 0;
};
