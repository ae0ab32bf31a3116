#include "record_summary.h"

#include <iomanip>
#include <sstream>

#include <nlohmann/json.hpp>

#include "artnet/recording_timing.h"
#include "cli/value_text.h"
#include "cli/wording.h"

namespace recording {

namespace {

using cli::counted;
using Json = nlohmann::ordered_json;

/// What the peers of packets are.
const char* peers_name(capture::Payload payload) {
    return payload == capture::Payload::Wrapped ? "destinations" : "senders";
}

Json universe_json(const UniverseFigures& figures, capture::Payload payload) {
    Json senders = Json::array();
    for (const capture::Endpoint& sender : figures.senders) {
        senders.push_back(capture::endpoint_text(sender));
    }
    return {{"universe", figures.universe}, {"frames", figures.packets}, {"fps", figures.fps},
            {"lost", figures.lost},         {"late", figures.late},      {"repeated", figures.repeated},
            {peers_name(payload), senders}};
}

void append_universes(std::ostream& out, const std::vector<UniverseFigures>& universes,
                      capture::Payload payload) {
    out << "universe    frames      fps     lost     late repeated  " << peers_name(payload) << '\n'
        << std::fixed;
    for (const UniverseFigures& figures : universes) {
        out << std::setw(8) << figures.universe << std::setw(10) << figures.packets << std::setw(9)
            << std::setprecision(2) << figures.fps << std::setw(9) << figures.lost << std::setw(9)
            << figures.late << std::setw(9) << figures.repeated << " ";
        for (const capture::Endpoint& sender : figures.senders) {
            out << ' ' << capture::endpoint_text(sender);
        }
        out << '\n';
    }
}

}  // namespace

std::string conflict_text(const capture::SenderConflict& conflict, capture::Payload payload) {
    return "universe " + std::to_string(conflict.universe) + " has two " + peers_name(payload) + ", " +
           capture::endpoint_text(conflict.first) + " and " + capture::endpoint_text(conflict.second);
}

std::string summary_text(const RecordSummary& summary) {
    const RecordStatistics& statistics = summary.statistics;
    const std::vector<UniverseFigures> universes = statistics.universes();
    const NotRecorded& rest = statistics.not_recorded();
    std::ostringstream out;
    out << summary.path << ": " << counted(summary.frames, "frame") << " of "
        << counted(universes.size(), "universe") << ", " << cli::time_text(summary.duration) << ", "
        << counted(summary.bytes, "byte") << '\n';
    if (summary.frames != 0) {
        out << "the last frame stands " << kLastFrameTime.count()
            << " ms, counted in: playback gives it that, since nothing follows that could tell\n";
    }
    if (statistics.frames() > summary.frames) {
        out << "captured, but not in the file: " << counted(statistics.frames() - summary.frames, "frame")
            << '\n';
    }
    append_universes(out, universes, summary.payload);
    out << "frames ended by ArtSync " << statistics.frames_ended_by(FrameEnd::Sync) << ", by repetition "
        << statistics.frames_ended_by(FrameEnd::Repetition) << ", by a gap "
        << statistics.frames_ended_by(FrameEnd::Gap) << '\n'
        << "not recorded: filtered " << rest.filtered << ", other Art-Net " << rest.other << ", malformed "
        << rest.malformed << ", no Art-Net " << rest.not_artnet << "; dropped by the kernel "
        << summary.kernel_drops << '\n';
    for (const capture::SenderConflict& conflict : statistics.conflicts()) {
        out << "warning: " << conflict_text(conflict, summary.payload) << '\n';
    }
    return out.str();
}

std::string summary_json(const RecordSummary& summary) {
    const RecordStatistics& statistics = summary.statistics;
    const NotRecorded& rest = statistics.not_recorded();
    Json universes = Json::array();
    for (const UniverseFigures& figures : statistics.universes()) {
        universes.push_back(universe_json(figures, summary.payload));
    }
    Json conflicts = Json::array();
    for (const capture::SenderConflict& conflict : statistics.conflicts()) {
        conflicts.push_back(
            {{"universe", conflict.universe},
             {peers_name(summary.payload),
              {capture::endpoint_text(conflict.first), capture::endpoint_text(conflict.second)}}});
    }
    const Json object{
        {"type", "recording"},
        {"file", summary.path},
        {"bytes", summary.bytes},
        {"frames", summary.frames},
        {"frames_not_written", statistics.frames() - summary.frames},
        {"duration_ns", summary.duration.count()},
        {"last_frame_ns", std::chrono::nanoseconds(kLastFrameTime).count()},
        {"frame_ends",
         {{"sync", statistics.frames_ended_by(FrameEnd::Sync)},
          {"repetition", statistics.frames_ended_by(FrameEnd::Repetition)},
          {"gap", statistics.frames_ended_by(FrameEnd::Gap)},
          {"finish", statistics.frames_ended_by(FrameEnd::Finish)}}},
        {"universes", universes},
        {"conflicts", conflicts},
        {"kernel_drops", summary.kernel_drops},
        {"not_recorded",
         {{"filtered", rest.filtered},
          {"other", rest.other},
          {"malformed", rest.malformed},
          {"not_artnet", rest.not_artnet}}},
    };
    // A file name need not be UTF-8.
    return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace recording
