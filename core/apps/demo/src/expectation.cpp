#include "expectation.h"

#include <algorithm>
#include <cstddef>

namespace demo {

namespace {

/// Shorter stretches than this are not judged by their rate.
constexpr double kJudgedSeconds = 1.9;

using namespace std::chrono_literals;

bool plays_on(const PlaylistPlan& plan, int universe) {
    return std::ranges::find(plan.universes, universe) != plan.universes.end();
}

Channels channels_of(const ZonePlan& zone) {
    Channels channels;
    for (int channel = zone.first; channel <= zone.last; ++channel) {
        channels.set(static_cast<std::size_t>(channel));
    }
    return channels;
}

}  // namespace

int StreamExpectation::packets() const {
    return frames * static_cast<int>(destinations.size() * owned.size());
}

double expected_rate(const PlaylistPlan& plan, int speed_boost) {
    using Seconds = std::chrono::duration<double>;
    const double scale = 1 - speed_boost / 200.0;
    Seconds round = Seconds(plan.frame_time) * plan.frames;
    if (plan.timing != Timing::FixedRate && plan.loop) {
        round += Seconds(kRecordingEndDelay) - Seconds(plan.frame_time);
    }
    return plan.frames / (round.count() * scale);
}

Channels owned_channels(const PlaylistPlan& plan, int universe, const std::vector<int>& loaded) {
    const ZonePlan* const own = zone(plan.zone);
    if (own == nullptr) {
        return Channels{}.set();
    }
    Channels owned = channels_of(*own);
    for (const int id : loaded) {
        const PlaylistPlan& other = playlist(id);
        const ZonePlan* const rival = zone(other.zone);
        if (rival != nullptr && other.output == plan.output && plays_on(other, universe) &&
            rival->priority > own->priority) {
            owned &= ~channels_of(*rival);
        }
    }
    return owned;
}

StreamExpectation expected_stream(const Playing& playing, const std::vector<int>& loaded) {
    const PlaylistPlan& plan = playlist(playing.playlist);
    StreamExpectation stream{.playlist = playing.playlist,
                             .frames = playing.frames,
                             .destinations = playing.destinations,
                             .rate = expected_rate(plan, playing.speed_boost)};
    stream.rate_judged = playing.frames / stream.rate >= kJudgedSeconds;
    for (const int universe : plan.universes) {
        stream.owned.push_back(owned_channels(plan, universe, loaded));
    }
    for (int frame = 0; frame < plan.frames; ++frame) {
        for (std::size_t index = 0; index < plan.universes.size(); ++index) {
            Levels& levels = stream.levels.emplace_back();
            for (std::size_t channel = 0; channel < levels.size(); ++channel) {
                const int recorded = plan.level(plan.universes[index], frame, static_cast<int>(channel));
                levels[channel] = static_cast<std::uint8_t>(recorded * playing.brightness / 100);
                if (stream.owned[index].test(channel)) {
                    stream.peak = std::max(stream.peak, int{levels[channel]});
                }
            }
        }
    }
    return stream;
}

std::vector<StepExpectation> expected_steps(const std::string& broadcast) {
    const std::vector<std::string> stage{kStageOutput};
    const std::vector<std::string> both_nodes{kFirstNode, kSecondNode};
    std::vector<StepExpectation> steps;
    const auto add = [&steps](const char* name, const char* label, const std::vector<int>& loaded,
                              const std::vector<Playing>& playing) {
        StepExpectation step{.name = name, .label = label};
        for (const Playing& one : playing) {
            step.streams.push_back(expected_stream(one, loaded));
        }
        step.destinations = playing.front().destinations;
        step.brief = step.name.starts_with("brightness-");
        steps.push_back(std::move(step));
    };
    const auto add_silence = [&steps](const char* name, const char* label,
                                      const std::vector<std::string>& destinations) {
        steps.push_back({.name = name, .label = label, .destinations = destinations, .silence = 1s});
    };

    add("play", "the chase", {kChase}, {{kChase, 120, stage}});
    add("brightness-75", "brightness 75 %", {kChase}, {{kChase, 28, stage, 75}});
    add("brightness-50", "brightness 50 %", {kChase}, {{kChase, 28, stage, 50}});
    add("brightness-25", "brightness 25 %", {kChase}, {{kChase, 28, stage, 25}});
    add("brightness-100", "brightness 100 %", {kChase}, {{kChase, 28, stage}});
    add("speed-boost", "speed boost 100", {kChase}, {{kChase, 160, stage, 100, 100}});
    add("overlay", "the pulse on top", {kChase, kPulse}, {{kChase, 120, stage}, {kPulse, 60, stage}});
    add("overlay-dim", "the pulse at 50 %", {kChase, kPulse}, {{kChase, 80, stage}, {kPulse, 40, stage, 50}});
    add("overlay-stop", "the pulse stopped", {kChase}, {{kChase, 40, stage}});
    add_silence("pause", "pause", stage);
    add("resume", "resume", {kChase}, {{kChase, 80, stage}});
    add_silence("no-nodes", "unicast, no node", both_nodes);
    add("discovery", "unicast, two nodes", {kHouse}, {{kHouse, 40, both_nodes}});
    add("unicast-off", "broadcast", {kHouse}, {{kHouse, 20, {broadcast}}});
    add("unicast-on", "unicast, one node", {kHouse}, {{kHouse, 20, {kFirstNode}}});
    steps.back().destinations = both_nodes;
    add("fade", "the fade, to its end", {kFade}, {{kFade, playlist(kFade).frames, {kFadeOutput}}});
    return steps;
}

}  // namespace demo
