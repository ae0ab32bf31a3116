#include "capture/limited_reader.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <poll.h>

namespace capture {

namespace {

/// Batches read before the caller gets its turn.
constexpr int kBatchesPerTurn = 64;
/// Batches read at most at the end: more than any buffer holds.
constexpr int kMostBatchesLeft = 4096;
/// So that a clock that is set back delays nothing for longer.
constexpr std::chrono::seconds kLongestWait{1};

}  // namespace

LimitedReader::LimitedReader(Source& source, const Limits& limits, std::function<void(const Datagram&)> take)
    : source_(source), take_(std::move(take)), idle_(limits.idle) {
    if (limits.duration) {
        end_ = source.now() + *limits.duration;
    }
}

void LimitedReader::wait(std::chrono::nanoseconds longest, std::initializer_list<int> descriptors) const {
    std::chrono::nanoseconds time = std::min<std::chrono::nanoseconds>(longest, kLongestWait);
    const std::chrono::nanoseconds now = source_.now();
    if (end_) {
        time = std::min(time, *end_ - now);
    }
    if (idle_ && latest_) {
        time = std::min(time, *latest_ + *idle_ - now);
    }
    std::vector<pollfd> waits{{source_.descriptor(), POLLIN, 0}};
    for (const int descriptor : descriptors) {
        waits.push_back({descriptor, POLLIN, 0});
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(time);
    poll(waits.data(), waits.size(), static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
}

bool LimitedReader::read() {
    const bool drained = read_batches(kBatchesPerTurn);
    if (beyond_end_) {
        return true;
    }
    // What still waits in the socket came before.
    if (!drained) {
        return false;
    }
    const std::chrono::nanoseconds now = source_.now();
    return (end_ && now > *end_) || (idle_ && latest_ && now - *latest_ > *idle_);
}

void LimitedReader::read_rest() {
    const std::chrono::nanoseconds now = source_.now();
    end_ = end_ ? std::min(*end_, now) : now;
    read_batches(kMostBatchesLeft);
}

bool LimitedReader::read_batches(int most) {
    const auto take = [this](const Datagram& datagram) {
        if (end_ && datagram.time > *end_) {
            beyond_end_ = true;
        } else {
            take_(datagram);
        }
    };
    for (int batch = 0; batch < most && !beyond_end_; ++batch) {
        if (source_.receive(take) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace capture
