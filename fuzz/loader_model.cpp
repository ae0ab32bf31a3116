#include "loader_model.h"

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "parser_model.h"

namespace fuzz {

namespace {

using Delay = decltype(Playlist::Packet::delay);

constexpr std::int64_t kSecond = 1'000'000'000;

/// How long a frame stands at a fixed rate; a second where the rate makes no sense.
Delay frame_time(int fps) {
    return Delay(fps > 0 ? kSecond / fps : kSecond);
}

/// The number in the bytes behind a timing packet's header, low byte first.
std::uint64_t number_in(const std::vector<std::uint8_t>& record) {
    std::uint64_t number = 0;
    for (std::size_t index = record.size(); index > 10; --index) {
        number = number << 8 | record.at(index - 1);
    }
    return number;
}

}  // namespace

LoadedEffect expected_load(Input recording, const Playlist::Effect& effect) {
    ParserModel parser;
    const ModelOutcome parsed = parser.parse({recording.begin(), recording.end()}, "dmn");
    LoadedEffect loaded;
    // At most one; not an optional, of which g++'s thread-sanitizer build believes that it may be read unset.
    std::vector<Playlist::Packet> pending;
    std::set<int> universes;
    int frame_size = effect.ppf;
    const auto store = [&](bool frame_end) {
        if (pending.empty()) {
            return;
        }
        if (frame_end && effect.fixed_fps) {
            pending.front().delay = frame_time(effect.fps);
        }
        loaded.packets.push_back(std::move(pending.front()));
        pending.clear();
    };
    for (const ModelEvent& event : parsed.events) {
        if (event.kind != "dmx") {
            if (!effect.fixed_fps && !pending.empty()) {
                const std::uint64_t unit = event.kind == "ms" ? 1'000'000 : 1;
                pending.front().delay = Delay(static_cast<Delay::rep>(number_in(event.bytes) * unit));
            }
            continue;
        }
        Playlist::Packet packet{event.bytes.at(14) | event.bytes.at(15) << 8, event.bytes, Delay::zero()};
        // Told with the length in host order, stored as on the wire.
        std::swap(packet.data.at(16), packet.data.at(17));
        if (frame_size == -1 && !universes.insert(packet.universe).second) {
            frame_size = static_cast<int>(universes.size());
        }
        const auto number = static_cast<int>(loaded.packets.size()) + 1;
        store(frame_size != -1 && frame_size != 0 && number % frame_size == 0);
        pending.assign(1, std::move(packet));
    }
    loaded.whole = parsed.error == 0;
    if (loaded.whole && !pending.empty()) {
        if (!effect.fixed_fps) {
            pending.front().delay = Delay(30'000'000);
        }
        store(true);
    }
    return loaded;
}

}  // namespace fuzz
