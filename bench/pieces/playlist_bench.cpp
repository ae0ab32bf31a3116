// The loader, and what the render worker asks a playlist for each packet.

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>

#include <QString>

#include "ondra/logger.h"
#include "playlist.h"
#include "playlist_loader.h"
#include "playlist_parser.h"
#include "sample.h"

namespace {

/// A data directory with one playlist of full packets, removed at the end.
class Show {
public:
    explicit Show(int universes, int frames)
        : root_(std::filesystem::temp_directory_path() / ("cuewright-bench-" + std::to_string(getpid()))) {
        std::filesystem::create_directories(root_ / "playlists");
        const std::string recording = full_recording(universes, frames);
        bytes_ = recording.size();
        std::ofstream(root_ / "show.rec", std::ios::binary) << recording;
        std::ofstream(root_ / "playlists/playlists.json") << R"([{"Id": 1}])";
        std::ofstream(root_ / "playlists/1.json")
            << R"([{"path": "show.rec", "fps": -1, "outputs": ["*:192.0.2.1:6454"], "universes": [{"id": 0, "zone": 1}]}])";
    }
    ~Show() { std::filesystem::remove_all(root_); }
    Show(const Show&) = delete;
    Show& operator=(const Show&) = delete;

    void describe(Playlist& playlist) const {
        ondra::Logger::instance()->setOutput(ondra::Logger::None);
        playlist.set_root_dir(QString::fromStdString(root_.string()));
        const PlaylistParser parser;
        parser.parse_desc(1, QStringLiteral("playlists/playlists.json"), playlist);
        parser.parse_effects(playlist);
    }
    [[nodiscard]] std::size_t bytes() const { return bytes_; }

private:
    std::filesystem::path root_;
    std::size_t bytes_ = 0;
};

void load(Playlist& playlist, PlaylistLoader& loader) {
    loader.start(playlist);
    ondra::wait_while([&] { return !loader.done(); });
}

void LoaderOverFullPackets(benchmark::State& state) {
    const Show show(16, 2000);
    for (auto _ : state) {
        Playlist playlist;
        show.describe(playlist);
        PlaylistLoader loader;
        load(playlist, loader);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(show.bytes()));
}
BENCHMARK(LoaderOverFullPackets)->Unit(benchmark::kMillisecond)->UseRealTime();

void PlaylistPacket(benchmark::State& state) {
    const Show show(4, 1000);
    Playlist playlist;
    show.describe(playlist);
    PlaylistLoader loader;
    load(playlist, loader);
    Playlist::Packet packet;
    int index = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(playlist.packet(index, packet));
        index = (index + 1) % playlist.packets_loaded();
    }
}
BENCHMARK(PlaylistPacket);

void PlaylistPacketInfo(benchmark::State& state) {
    const Show show(4, 1000);
    Playlist playlist;
    show.describe(playlist);
    PlaylistLoader loader;
    load(playlist, loader);
    const Playlist::Address* addresses = nullptr;
    int count = 0;
    int zone = 0;
    int index = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(playlist.packet_info(index, &addresses, count, zone));
        index = (index + 1) % playlist.packets_loaded();
    }
}
BENCHMARK(PlaylistPacketInfo);

}  // namespace
