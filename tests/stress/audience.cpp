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
constexpr std::size_t kFirstChannel = 42;

std::string judge(const integration::Frame& frame, const model::Audible* expected) {
    std::ostringstream text;
    if (expected == nullptr) {
        text << "universe " << frame.universe() << " is heard, for " << frame.ip() << ":" << frame.port()
             << ", and should be silent";
        return text.str();
    }
    for (std::size_t channel = 0; channel < expected->levels.size(); ++channel) {
        if (frame.bytes[kFirstChannel + channel] != expected->levels[channel]) {
            text << "universe " << frame.universe() << " has " << int{frame.bytes[kFirstChannel + channel]}
                 << " on channel " << channel << " instead of " << int{expected->levels[channel]};
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

std::string Audience::stretch(const std::vector<model::Audible>& audible, const std::vector<int>& uncertain,
                              bool& heard) {
    const auto deadline = steady_clock::now() + kPatience;
    std::vector<int> count(audible.size(), 0);
    std::string wrong;
    const auto missing = [&count] {
        return std::find_if(count.begin(), count.end(), [](int frames) { return frames < kFramesEach; });
    };
    while (missing() != count.end()) {
        if (steady_clock::now() >= deadline) {
            heard = false;
            const model::Audible& silent = audible[static_cast<std::size_t>(missing() - count.begin())];
            return "universe " + std::to_string(silent.universe) + " is not heard at port " +
                   std::to_string(silent.port);
        }
        for (integration::ForwarderSocket* const socket : sockets_) {
            for (auto frame = socket->receive(std::chrono::milliseconds(1)); frame;
                 frame = socket->receive(std::chrono::milliseconds(0))) {
                ++frames_;
                const int universe = frame->universe();
                const auto found = std::find_if(audible.begin(), audible.end(), [&](const auto& entry) {
                    return entry.port == socket->port() && entry.universe == universe;
                });
                if (found != audible.end()) {
                    ++count[static_cast<std::size_t>(found - audible.begin())];
                } else if (std::find(uncertain.begin(), uncertain.end(), universe) != uncertain.end()) {
                    continue;
                }
                const std::string verdict = judge(*frame, found == audible.end() ? nullptr : &*found);
                wrong = verdict.empty() ? wrong : verdict;
                // A burst must not keep the loop from its end.
                if (missing() == count.end()) {
                    break;
                }
            }
        }
    }
    return wrong;
}

std::string Audience::listen(const std::vector<model::Audible>& audible, const std::vector<int>& uncertain) {
    const auto deadline = steady_clock::now() + kPatience;
    skip();
    bool heard = true;
    std::string wrong;
    do {
        wrong = stretch(audible, uncertain, heard);
    } while (!wrong.empty() && heard && steady_clock::now() < deadline);
    return wrong;
}

}  // namespace stress
