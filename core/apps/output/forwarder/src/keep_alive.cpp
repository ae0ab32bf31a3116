#include "keep_alive.h"

#include <algorithm>
#include <cassert>

namespace forwarder {

void KeepAlive::store(std::size_t stream, std::span<const unsigned char> packet, Time now) {
    if (stream >= frames_.size()) {
        frames_.resize(stream + 1);
    }
    Frame& frame = frames_[stream];
    assert(packet.size() <= frame.bytes.size());
    std::ranges::copy(packet, frame.bytes.begin());
    frame.size = packet.size();
    silent_at_.put(stream, now + period_);
}

std::optional<std::size_t> KeepAlive::take_due(Time now) {
    if (silent_at_.first_due() > now) {
        return std::nullopt;
    }
    const std::size_t stream = silent_at_.first();
    // From now and not from when it was due: what was late once is not to be caught up with.
    silent_at_.put(stream, now + period_);
    return stream;
}

std::span<const unsigned char> KeepAlive::frame(std::size_t stream) const {
    return {frames_[stream].bytes.data(), frames_[stream].size};
}

}  // namespace forwarder
