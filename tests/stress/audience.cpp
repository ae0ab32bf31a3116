#include "audience.h"

#include <algorithm>
#include <chrono>
#include <sstream>

namespace stress {

namespace {

using std::chrono::steady_clock;

/// Frames of each universe in one stretch: as many periods of what should be silent go by meanwhile.
constexpr int kFramesEach = 6;
constexpr std::chrono::seconds kPatience{60};
/// How long a stretch lasts when nothing has to be heard: as long as tens of frames.
constexpr std::chrono::milliseconds kSilence{100};
constexpr std::size_t kFirstChannel = 42;

/// What is wrong with a frame; empty when nothing is.
std::string judge(const integration::Frame& frame, const model::Audible* expected) {
    std::ostringstream text;
    if (expected == nullptr) {
        text << "universe " << frame.universe() << " is heard, for " << frame.ip() << ":" << frame.port()
             << ", and should be silent";
        return text.str();
    }
    text << "universe " << frame.universe();
    if (frame.ip() != expected->ip || frame.port() != expected->port) {
        text << " is for " << frame.ip() << ":" << frame.port() << " instead of " << expected->ip << ":"
             << expected->port;
        return text.str();
    }
    if (frame.length() != expected->length) {
        text << " has " << frame.length() << " channels instead of " << expected->length;
        return text.str();
    }
    for (std::size_t channel = 0; channel < expected->levels.size(); ++channel) {
        if (frame.bytes[kFirstChannel + channel] != expected->levels[channel]) {
            text << " has " << int{frame.bytes[kFirstChannel + channel]} << " on channel " << channel
                 << " instead of " << int{expected->levels[channel]};
            return text.str();
        }
    }
    return {};
}

}  // namespace

void Audience::skip() {
    for (integration::ForwarderSocket* const socket : sockets_) {
        frames_ += static_cast<long long>(socket->arrived().size());
    }
}

Audience::Stretch Audience::stretch(const std::vector<model::Audible>& audible,
                                    const std::vector<int>& uncertain) {
    const auto begin = steady_clock::now();
    // Of right frames.
    std::vector<int> count(audible.size(), 0);
    Stretch result;
    const auto missing = [&count] {
        return std::find_if(count.begin(), count.end(), [](int frames) { return frames < kFramesEach; });
    };
    const auto unfinished = [&] {
        return audible.empty() ? steady_clock::now() - begin < kSilence : missing() != count.end();
    };
    while (unfinished()) {
        if (!audible.empty() && steady_clock::now() - begin >= kPatience) {
            const model::Audible& silent = audible[static_cast<std::size_t>(missing() - count.begin())];
            result.wrong = "universe " + std::to_string(silent.universe) +
                           " is not heard as it should be at port " + std::to_string(silent.port) +
                           (result.stale.empty() ? "" : ": " + result.stale);
            return result;
        }
        for (integration::ForwarderSocket* const socket : sockets_) {
            for (auto frame = socket->receive(std::chrono::milliseconds(1)); frame;
                 frame = socket->receive(std::chrono::milliseconds(0))) {
                ++frames_;
                const int universe = frame->universe();
                const auto found = std::find_if(audible.begin(), audible.end(), [&](const auto& entry) {
                    return entry.port == socket->port() && entry.universe == universe;
                });
                const bool silent = found == audible.end();
                if (silent && std::find(uncertain.begin(), uncertain.end(), universe) != uncertain.end()) {
                    if (!unfinished()) {
                        break;
                    }
                    continue;
                }
                const std::string verdict = judge(*frame, silent ? nullptr : &*found);
                int* const right =
                    silent ? nullptr : &count[static_cast<std::size_t>(found - audible.begin())];
                if (verdict.empty()) {
                    ++*right;
                } else if (silent || *right == 0) {
                    result.stale = verdict;
                } else {
                    // Nothing that was on its way comes behind what was sent later.
                    result.wrong = verdict + ", after " + std::to_string(*right) + " right frames";
                    return result;
                }
                // A burst must not keep the loop from its end.
                if (!unfinished()) {
                    break;
                }
            }
        }
    }
    return result;
}

std::string Audience::listen(const std::vector<model::Audible>& audible, const std::vector<int>& uncertain) {
    skip();
    Stretch heard = stretch(audible, uncertain);
    if (heard.wrong.empty() && !heard.stale.empty()) {
        heard = stretch(audible, uncertain);
    }
    return heard.wrong.empty() ? heard.stale : heard.wrong;
}

}  // namespace stress
