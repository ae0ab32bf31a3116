#include "inspect/inspection.h"

#include <cerrno>
#include <cstring>
#include <map>

#include <fcntl.h>
#include <sys/stat.h>

#include "inspect/frame_checks.h"
#include "inspect/packet_walk.h"
#include "inspect/timeline.h"
#include "inspect/wording.h"
#include "ondra/logger.h"
#include "posix/file_descriptor.h"

namespace inspect {

namespace {

constexpr std::uint64_t kBlockSize = 512;

void count_packets(const Timeline& timeline, RecordingReport& report) {
    std::map<int, std::uint64_t> universes;
    for (std::size_t packet = 0; packet < timeline.packets(); ++packet) {
        ++universes[timeline.universe(packet)];
    }
    for (const auto& [universe, packets] : universes) {
        report.universes.push_back({universe, packets});
    }
    report.packets = timeline.packets();
    report.frames = timeline.frames();
    report.duration = timeline.duration();
    if (timeline.frames() != 0) {
        report.last_played = timeline.length(timeline.frames() - 1);
    }
}

}  // namespace

std::string why_unreadable(const std::string& path, std::uint64_t& bytes) {
    // Without waiting for the writer of a FIFO.
    const posix::FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
        return std::strerror(errno);
    }
    if (S_ISDIR(status.st_mode)) {
        return "it is a directory";
    }
    if (!S_ISREG(status.st_mode)) {
        return "it is no regular file: the service would play what comes out of it as long as something "
               "comes";
    }
    bytes = static_cast<std::uint64_t>(status.st_size);
    return {};
}

RecordingReport inspect_recording(const std::string& path, const InspectOptions& options,
                                  const ProgressSink& progress) {
    RecordingReport report(path, Findings(options.per_kind));
    if (const std::string reason = why_unreadable(path, report.bytes); !reason.empty()) {
        report.findings.add({"unreadable", Level::Error, 0, 0, 1,
                             "cannot be read: " + reason +
                                 "; the service loads neither this effect nor those that follow it in a "
                                 "playlist; check the path and the permissions"});
        return report;
    }
    Timeline timeline(path, options.fps, options.ppf, [&](int packets) {
        if (progress) {
            progress(static_cast<std::uint64_t>(packets), 0);
        }
    });
    count_packets(timeline, report);
    PacketWalk walk(path, report.bytes, timeline, options.fps != -1, report.findings);
    // The search for identifiers, the walk and the frames' checks take a third each.
    const std::uint64_t total = 3 * report.bytes;
    report.loads = walk.run([&](std::uint64_t done) {
        if (progress) {
            progress(done, total);
        }
    });
    report.last_recorded = walk.last_timing();
    FrameChecks(timeline, walk, options, report.findings).run([&](std::uint64_t done, std::uint64_t of) {
        if (progress) {
            const double share = static_cast<double>(done) / static_cast<double>(of);
            progress(2 * report.bytes + static_cast<std::uint64_t>(share * static_cast<double>(report.bytes)),
                     total);
        }
    });
    // A load that ends with an error has its finding.
    if (report.loads && report.packets == 0) {
        report.findings.add(
            {"no-dmx", Level::Error, 0, 0, 1,
             "the recording holds no ArtDmx packet: nothing of it is ever sent; leave it out, or "
             "record it anew"});
    }
    if (report.bytes % kBlockSize != 0 && report.bytes > kBlockSize && report.loads &&
        !report.findings.has("stale-duplicate")) {
        const std::size_t last_frame = timeline.frames() == 0 ? 0 : timeline.frames() - 1;
        report.findings.add({"not-padded", Level::Note, report.bytes, last_frame, 1,
                             "the file does not end with a block of 512 bytes: by luck nothing of the block "
                             "before is played again; pad it with zeros all the same (truncate -s %512 "
                             "FILE)"});
    }
    report.findings.sort();
    return report;
}

void silence_service_log() {
    ondra::Logger::instance()->setOutput(ondra::Logger::None);
}

}  // namespace inspect
