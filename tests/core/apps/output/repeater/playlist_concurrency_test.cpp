// A loader that appends and a render worker that reads, at once.

#include "playlist.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/eventually.h"
#include "support/playlist_access.h"

namespace {

constexpr int kPackets = 5000;

TEST(PlaylistConcurrencyTest, ReadersSeeWholePacketsAndTheirRoutingWhileTheLoaderAppends) {
    Playlist playlist;
    PlaylistAccess::effects(playlist).resize(1);
    PlaylistAccess::effects(playlist)[0].outputs[-1] = {Playlist::Address("192.0.2.1", 2000)};
    PlaylistAccess::effects(playlist)[0].universes = {{1, 11}};
    PlaylistAccess::set_progress(playlist, {-1}, 0);
    std::thread loader([&playlist] {
        for (int index = 0; index < kPackets; ++index) {
            const auto byte = static_cast<unsigned char>(index);
            playlist.add_packet(
                {index % 2, std::vector<unsigned char>(20, byte), std::chrono::nanoseconds(index)});
            PlaylistAccess::set_effect_end(playlist, 0, index);
        }
    });
    int wrong = 0;
    Playlist::Packet packet;
    for (int index = 0; index < kPackets;) {
        if (index >= playlist.packets_loaded()) {
            std::this_thread::yield();
            continue;
        }
        const Playlist::Address* addresses = nullptr;
        int count = 0;
        int zone = 0;
        const bool whole = playlist.packet(index, packet) && packet.universe == index % 2 &&
                           packet.data == std::vector<unsigned char>(20, static_cast<unsigned char>(index)) &&
                           packet.delay.count() == index &&
                           playlist.packet_info(index, &addresses, count, zone) && count == 1 &&
                           zone == (index % 2 == 1 ? 11 : -1);
        wrong += whole ? 0 : 1;
        ++index;
    }
    loader.join();
    EXPECT_EQ(wrong, 0);
}

TEST(PlaylistConcurrencyTest, AppendingWaitsForAReaderInside) {
    Playlist playlist;
    std::atomic<bool> started{false};
    ondra::ReadWriteLock& lock = PlaylistAccess::lock(playlist);
    lock.lock_as_reader();
    std::thread loader([&] {
        started.store(true);
        playlist.add_packet({0, {1}, {}});
    });
    EXPECT_TRUE(eventually([&] { return started.load(); }));
    // One-sided: a writer that did not wait would have many turns of the processor to get in.
    for (int turn = 0; turn < 50; ++turn) {
        EXPECT_EQ(playlist.packets_loaded(), 0);
        std::this_thread::yield();
    }
    lock.unlock_as_reader();
    loader.join();
    EXPECT_EQ(playlist.packets_loaded(), 1);
}

TEST(PlaylistConcurrencyTest, FetchingWaitsForAWriterInside) {
    Playlist playlist;
    playlist.add_packet({0, {1}, {}});
    ondra::ReadWriteLock& lock = PlaylistAccess::lock(playlist);
    std::atomic<bool> started{false};
    std::atomic<bool> fetched{false};
    lock.lock_as_writer();
    std::thread worker([&] {
        Playlist::Packet packet;
        started.store(true);
        EXPECT_TRUE(playlist.packet(0, packet));
        fetched.store(true);
    });
    EXPECT_TRUE(eventually([&] { return started.load(); }));
    // One-sided, as above.
    for (int turn = 0; turn < 50; ++turn) {
        EXPECT_FALSE(fetched.load());
        std::this_thread::yield();
    }
    lock.unlock_as_writer();
    worker.join();
    EXPECT_TRUE(fetched.load());
}

TEST(PlaylistConcurrencyTest, FetchingSharesTheLockWithAnotherReader) {
    Playlist playlist;
    playlist.add_packet({0, {1}, {}});
    ondra::ReadWriteLock& lock = PlaylistAccess::lock(playlist);
    std::atomic<bool> fetched{false};
    lock.lock_as_reader();
    std::thread worker([&] {
        Playlist::Packet packet;
        EXPECT_TRUE(playlist.packet(0, packet));
        fetched.store(true);
    });
    EXPECT_TRUE(eventually([&] { return fetched.load(); }));
    lock.unlock_as_reader();
    worker.join();
}

}  // namespace
