#include "watch_statistics.h"

#include <algorithm>

#include "artnet/forwarding_datagram.h"

namespace forwarder {

namespace {

// Offsets within an ArtDmx packet, and the operation code that marks one.
constexpr std::size_t kOpCode = 8;
constexpr std::size_t kUniverse = 14;
constexpr std::size_t kLength = 16;
constexpr std::size_t kData = 18;
constexpr unsigned kOpDmx = 0x5000;

}  // namespace

bool read_dmx(std::span<const unsigned char> packet, DmxFrame& frame) {
    if (packet.size() < kData || (packet[kOpCode] | unsigned{packet[kOpCode + 1]} << 8) != kOpDmx) {
        return false;
    }
    const std::size_t length = std::size_t{packet[kLength]} << 8 | packet[kLength + 1];
    frame.universe = packet[kUniverse] | unsigned{packet[kUniverse + 1]} << 8;
    frame.levels = packet.subspan(kData, std::min(length, packet.size() - kData));
    return true;
}

double percentile(std::span<const double> sorted, unsigned percent) {
    if (sorted.empty()) {
        return 0;
    }
    const std::size_t rank = (sorted.size() * percent + 99) / 100;
    return sorted[std::max<std::size_t>(rank, 1) - 1];
}

void WatchStatistics::record(const Endpoint& target, const DmxFrame& frame, Clock::time_point received) {
    const Key key{frame.universe, std::uint64_t{target.address} << 16 | target.port};
    const std::scoped_lock guard(mutex_);
    auto entry = streams_.find(key);
    if (entry == streams_.end()) {
        if (streams_.size() >= kMostStreams) {
            ++beyond_limit_;
            return;
        }
        entry = streams_.try_emplace(key).first;
    }
    Stream& stream = entry->second;
    stream.times[stream.frames++ % kMostTimes] = received;
    stream.level_count = std::min(frame.levels.size(), stream.levels.size());
    std::copy_n(frame.levels.begin(), stream.level_count, stream.levels.begin());
}

WatchRow WatchStatistics::row_of(const Stream& stream, Clock::time_point now) {
    WatchRow row;
    row.frames = stream.frames;
    row.levels.assign(stream.levels.begin(),
                      stream.levels.begin() + static_cast<std::ptrdiff_t>(stream.level_count));
    const std::uint64_t kept = std::min<std::uint64_t>(stream.frames, kMostTimes);
    std::vector<Clock::time_point> times;
    for (std::uint64_t i = stream.frames - kept; i < stream.frames; ++i) {
        const Clock::time_point time = stream.times[i % kMostTimes];
        if (time + kWindow >= now) {
            times.push_back(time);
        }
    }
    std::vector<double> intervals;
    for (std::size_t i = 1; i < times.size(); ++i) {
        intervals.push_back(std::chrono::duration<double, std::milli>(times[i] - times[i - 1]).count());
    }
    std::ranges::sort(intervals);
    row.interval_p50 = percentile(intervals, 50);
    row.interval_p99 = percentile(intervals, 99);
    row.interval_max = percentile(intervals, 100);
    if (!intervals.empty() && times.back() > times.front() && times.back() + kIdleAfter >= now) {
        row.fps = static_cast<double>(intervals.size()) /
                  std::chrono::duration<double>(times.back() - times.front()).count();
    }
    return row;
}

std::vector<WatchRow> WatchStatistics::rows(Clock::time_point now) const {
    std::vector<Key> keys;
    {
        const std::scoped_lock guard(mutex_);
        for (const auto& [key, stream] : streams_) {
            keys.push_back(key);
        }
    }
    std::vector<WatchRow> rows;
    rows.reserve(keys.size());
    Stream stream;
    for (const Key& key : keys) {
        {
            // One at a time: the thread that forwards waits for the lock, and all of them are a megabyte.
            const std::scoped_lock guard(mutex_);
            stream = streams_.at(key);
        }
        WatchRow row = row_of(stream, now);
        row.universe = key.first;
        row.target = {static_cast<std::uint32_t>(key.second >> 16), static_cast<std::uint16_t>(key.second)};
        rows.push_back(std::move(row));
    }
    return rows;
}

std::uint64_t WatchStatistics::frames_beyond_limit() const {
    const std::scoped_lock guard(mutex_);
    return beyond_limit_;
}

}  // namespace forwarder
