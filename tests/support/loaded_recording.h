#pragma once
// What the service's own loader makes of a recording. For tests that link core::repeater.

#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

#include <QThread>

#include "artnet/artnet_parser.h"
#include "playlist_loader.h"
#include "support/eventually.h"
#include "support/playlist_access.h"

namespace tests {

/// The packets of the file with its own timing, in playing order; none when it cannot be loaded in time.
inline std::vector<Playlist::Packet> load_recording(const std::string& path) {
    // Qt takes the first thread that it meets for the main one and never frees what it keeps of it. The
    // loader's thread ends.
    static_cast<void>(QThread::currentThread());
    const std::size_t slash = path.rfind('/');
    Playlist playlist;
    playlist.set_root_dir(QString::fromStdString(path.substr(0, slash)));
    Playlist::Effect effect;
    effect.path = QString::fromStdString(path.substr(slash + 1));
    PlaylistAccess::effects(playlist) = {effect};
    PlaylistLoader loader;
    loader.start(playlist);
    std::vector<Playlist::Packet> packets;
    if (eventually([&] { return loader.done(); })) {
        packets.resize(static_cast<std::size_t>(playlist.packets_loaded()));
        for (std::size_t i = 0; i < packets.size(); ++i) {
            static_cast<void>(playlist.packet(static_cast<int>(i), packets[i]));
        }
    }
    return packets;
}

/// ArtDmx packets in the file, which may be growing; 0 where it is not there.
inline std::uint64_t packets_in(const std::string& path) {
    ArtNetParser parser;
    std::uint64_t packets = 0;
    parser.on_artdmx = [&](ArtDmx&) { ++packets; };
    std::error_code error;
    parser.parse(path.c_str(), error);
    return packets;
}

}  // namespace tests
