#include "edited_output.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fcntl.h>

#include "artnet/recording_timing.h"
#include "artnet/records.h"
#include "cli/failure.h"
#include "cli/progress.h"
#include "ondra/timing.h"
#include "output_recording.h"

using namespace std::chrono_literals;

namespace recording {

namespace {

constexpr std::size_t kWindow = 262144;

void tell_left_out(const RecordingIndex& source) {
    const auto tell = [&source](std::uint64_t count, const char* reason) {
        if (count != 0) {
            std::fprintf(stderr, "%s: packets left out, %s: %llu\n", source.path.c_str(), reason,
                         static_cast<unsigned long long>(count));
        }
    };
    tell(source.stale, "which its incomplete last block makes playback repeat");
    tell(source.passed_over, "which playback passes over");
}

}  // namespace

PacketSource::PacketSource(std::string path)
    : path_(std::move(path)), file_(open(path_.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (!file_) {
        throw cli::Failure(path_ + ": " + std::strerror(errno));
    }
}

std::span<std::uint8_t> PacketSource::packet(std::uint64_t offset, std::size_t size) {
    if (offset < window_begin_ || offset + size > window_begin_ + window_.size()) {
        window_.resize(kWindow);
        std::size_t filled = 0;
        while (filled < size) {
            const ssize_t count = pread(file_.get(), window_.data() + filled, kWindow - filled,
                                        static_cast<off_t>(offset + filled));
            if (count < 0 && errno != EINTR) {
                throw cli::Failure(path_ + ": " + std::strerror(errno));
            }
            if (count == 0) {
                break;
            }
            filled += count < 0 ? 0 : static_cast<std::size_t>(count);
        }
        window_.resize(filled);
        window_begin_ = offset;
    }
    const auto at = static_cast<std::size_t>(offset - window_begin_);
    if (at + size > window_.size() ||
        !std::ranges::equal(std::span(window_).subspan(at, kArtNetIdentifier.size()), kArtNetIdentifier)) {
        throw cli::Failure(path_ + ": has changed while it was read");
    }
    return std::span(window_).subspan(at, size);
}

WrittenSummary write_edited(const EditedRecording& recording, const std::vector<RecordingIndex>& sources,
                            const std::string& path, bool force) {
    OutputRecording out(path, force);
    WrittenSummary summary;
    summary.path = path;
    summary.is_special = out.is_special();
    std::vector<PacketSource> files;
    files.reserve(sources.size());
    for (const RecordingIndex& source : sources) {
        files.emplace_back(source.path);
    }
    const std::vector<EditedPacket>& packets = recording.packets;
    cli::Progress progress(path, packets.size());
    std::uint64_t timings = 0;
    for (std::size_t index = 0; index < packets.size(); ++index) {
        const EditedPacket& packet = packets[index];
        const std::span<std::uint8_t> bytes = files[packet.source].packet(packet.offset, packet.size);
        bytes[offsetof(ArtDmx, SubUni)] = static_cast<std::uint8_t>(packet.universe & 0xFF);
        bytes[offsetof(ArtDmx, Net)] = static_cast<std::uint8_t>(packet.universe >> 8);
        out.writer().raw_dmx(bytes);
        summary.universes.insert(packet.universe);
        const auto next = index + 1 < packets.size() ? packets[index + 1].begin : recording.end;
        if (next > packet.begin || packet.ends_frame_of_no_time) {
            out.writer().frame_delay(next - packet.begin);
            ++timings;
        }
        progress.update(index + 1);
    }
    out.commit();
    progress.clear();
    for (const RecordingIndex& source : sources) {
        tell_left_out(source);
        summary.repeated += source.stale;
        summary.passed_over += source.passed_over;
    }
    summary.bytes = out.writer().size();
    summary.packets = packets.size();
    if (timings != 0) {
        summary.frames = timings;
    }
    summary.duration = ondra::saturating_add(packets.back().begin, kLastFrameTime);
    return summary;
}

}  // namespace recording
