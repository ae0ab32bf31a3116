// The tools and the service agree about what a recording plays, also a damaged one.
#include <gtest/gtest.h>

#include "artnet/recording_reader.h"
#include "parser_scenario.h"
#include "playlist.h"
#include "playlist_loader.h"
#include "support/captured_log.h"
#include "support/eventually.h"
#include "support/playlist_access.h"
#include "support/show_directory.h"

namespace {

/// Universe, bytes and delay of a packet.
struct PlayedPacket {
    int universe = 0;
    std::vector<unsigned char> data;
    std::int64_t delay = 0;

    bool operator==(const PlayedPacket&) const = default;
};

/// What the service's loader stores of a recording with its own timing.
std::vector<PlayedPacket> loaded_by_the_service(const ShowDirectory& show) {
    Playlist playlist;
    playlist.set_root_dir(show.root());
    Playlist::Effect effect;
    effect.path = QStringLiteral("a.rec");
    PlaylistAccess::effects(playlist) = {effect};
    PlaylistLoader loader;
    loader.start(playlist);
    EXPECT_TRUE(eventually([&] { return loader.done(); }));
    std::vector<PlayedPacket> packets;
    Playlist::Packet packet;
    for (int index = 0; index < playlist.packets_loaded() && playlist.packet(index, packet); ++index) {
        // Below zero, it is no delay.
        packets.push_back({packet.universe, packet.data, std::max<std::int64_t>(packet.delay.count(), 0)});
    }
    return packets;
}

std::vector<PlayedPacket> read_by_the_tools(const ShowDirectory& show) {
    std::vector<PlayedPacket> packets;
    RecordingReader reader;
    reader.on_packet = [&](const RecordedPacket& packet) {
        packets.push_back(
            {packet.universe, {packet.bytes.begin(), packet.bytes.end()}, packet.delay.count()});
    };
    std::error_code error;
    reader.read(show.path("a.rec").c_str(), error);
    return packets;
}

}  // namespace

TEST(RecordingLoaderTest, ReaderAndLoaderGiveTheSamePacketsWithTheSameDelays) {
    const CapturedLog log;
    ShowDirectory show;
    std::size_t packets = 0;
    std::size_t delays = 0;
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        show.recording("a.rec", make_parser_scenario(seed).input);
        const std::vector<PlayedPacket> loaded = loaded_by_the_service(show);
        ASSERT_EQ(read_by_the_tools(show), loaded) << "scenario " << seed;
        packets += loaded.size();
        for (const PlayedPacket& packet : loaded) {
            delays += packet.delay > 0 ? 1 : 0;
        }
    }
    EXPECT_GT(packets, 300U) << "the scenarios hold something";
    EXPECT_GT(delays, 100U);
}
