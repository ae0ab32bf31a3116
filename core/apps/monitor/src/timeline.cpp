#include "timeline.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <string_view>
#include <system_error>

#include <unistd.h>

#include "artnet/recording_reader.h"
#include "cli/failure.h"
#include "ondra/timing.h"

using namespace std::chrono_literals;

namespace monitor {

LevelMark mark_of(std::span<const unsigned char> levels) noexcept {
    return std::hash<std::string_view>{}({reinterpret_cast<const char*>(levels.data()), levels.size()});
}

Timeline read_timeline(const std::string& path, int speed_boost,
                       const std::function<void(std::uint64_t)>& progress) {
    Timeline timeline;
    RecordingReader reader;
    reader.on_progress = progress;
    ondra::Clock::duration due{0};
    reader.on_packet = [&](const RecordedPacket& packet) {
        timeline.universes[packet.universe].push_back(
            {due, mark_of(packet.bytes.subspan(kDmxHeaderSize)), packet.bytes[offsetof(ArtDmx, Sequence)]});
        ++timeline.packets;
        // Playback takes no step for a delay of nothing.
        if (packet.delay >= 1ns) {
            due = ondra::saturating_add(due, ondra::calculate_delay(packet.delay, speed_boost));
        }
    };
    // Of what cannot be opened the parser only says that it is not there.
    if (access(path.c_str(), R_OK) != 0) {
        throw cli::Failure(path + ": " + std::generic_category().message(errno));
    }
    std::error_code error;
    reader.read(path.c_str(), error);
    if (timeline.packets == 0) {
        throw cli::Failure(
            path + ": holds nothing to compare with: " + (error ? error.message() : "no ArtDmx packet"));
    }
    // A recording that plays in no time at all cannot be laid end to end.
    timeline.duration = std::max<std::chrono::nanoseconds>(due, 1ms);
    return timeline;
}

}  // namespace monitor
