#include "sample_show.h"

#include <array>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

#include "artnet/recording_writer.h"

namespace demo {

namespace {

/// A timing that a fixed rate must overrule; playing by it would be plain to see.
constexpr std::uint32_t kIgnoredMilliseconds = 999;

void write_frame_time(RecordingWriter& writer, const PlaylistPlan& plan, int frame) {
    switch (plan.timing) {
        case Timing::Nanoseconds:
            writer.frame_delay(plan.frame_time);
            break;
        case Timing::Milliseconds:
            writer.frame_delay_ms(static_cast<std::uint32_t>(
                std::chrono::duration_cast<std::chrono::milliseconds>(plan.frame_time).count()));
            break;
        case Timing::FixedRate:
            if (frame == 0) {
                writer.frame_delay_ms(kIgnoredMilliseconds);
            }
            break;
    }
}

/// Packets per frame are left out on purpose: at a fixed rate the service finds them from the recording.
std::string effects_json(const PlaylistPlan& plan, std::uint16_t port) {
    const auto per_second = std::chrono::seconds(1) / plan.frame_time;
    std::ostringstream json;
    json << "[\n  {\n    \"name\": \"" << plan.recording << "\",\n    \"path\": \"recordings/"
         << plan.recording << "\",\n    \"fps\": " << (plan.timing == Timing::FixedRate ? per_second : -1)
         << ",\n    \"outputs\": [";
    if (!plan.output.empty()) {
        json << "\"*:" << plan.output << ":" << port << "\"";
    }
    json << "],\n    \"universes\": [";
    if (plan.zone >= 0) {
        const char* separator = "";
        for (const int universe : plan.universes) {
            json << separator << "{\"id\": " << universe << ", \"zone\": " << plan.zone << "}";
            separator = ", ";
        }
    }
    json << "]\n  }\n]\n";
    return json.str();
}

std::string playlists_json() {
    std::ostringstream json;
    json << "[";
    const char* separator = "\n";
    for (const PlaylistPlan& plan : playlists()) {
        json << separator << R"(  {"Id": )" << plan.id << R"(, "Loop": )" << (plan.loop ? "true" : "false")
             << R"(, "Brightness": 100, "SpeedBoost": 0})";
        separator = ",\n";
    }
    json << "\n]\n";
    return json.str();
}

void write_file(const std::filesystem::path& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file) {
        throw std::system_error(errno, std::generic_category(), "cannot write " + path.string());
    }
}

}  // namespace

std::string recording_of(const PlaylistPlan& plan) {
    std::ostringstream stream;
    RecordingWriter writer(stream);
    std::array<std::uint8_t, kChannels> levels{};
    for (int frame = 0; frame < plan.frames; ++frame) {
        for (const int universe : plan.universes) {
            for (int channel = 0; channel < kChannels; ++channel) {
                levels[static_cast<std::size_t>(channel)] = plan.level(universe, frame, channel);
            }
            writer.dmx(static_cast<std::uint16_t>(universe), levels,
                       static_cast<std::uint8_t>(plan.first_sequence + frame));
        }
        write_frame_time(writer, plan, frame);
    }
    writer.pad();
    return stream.str();
}

void write_sample_show(const std::filesystem::path& directory, std::uint16_t port) {
    const std::filesystem::path lists = directory / "playlists";
    const std::filesystem::path recordings = directory / "recordings";
    std::filesystem::create_directories(lists);
    std::filesystem::create_directories(recordings);
    write_file(lists / "playlists.json", playlists_json());
    for (const PlaylistPlan& plan : playlists()) {
        write_file(lists / (std::to_string(plan.id) + ".json"), effects_json(plan, port));
        write_file(recordings / plan.recording, recording_of(plan));
    }
}

}  // namespace demo
