// How a step is made: call, marks, watching, judging.

#include "performance.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "failure.h"
#include "ondra/net/interface_identity.h"

namespace demo {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

/// Time that packets sent before an answer get to line up in front of the marks.
constexpr auto kSettleTime = 50ms;
/// Marks not back after this time are lost. Long, as the next one: a busy machine may hold up any program for
/// seconds, and nobody waits for it unless something is wrong.
constexpr auto kMarkTime = 10s;
/// What a step may take longer than planned.
constexpr auto kGrace = 10s;
constexpr auto kRedrawTime = 100ms;

/// How long the step's frames take by plan.
std::chrono::milliseconds planned_time(const StepExpectation& step) {
    double seconds = 0;
    for (const StreamExpectation& stream : step.streams) {
        seconds = std::max(seconds, stream.frames / stream.rate);
    }
    return step.streams.empty() ? step.silence : std::chrono::milliseconds(static_cast<long>(seconds * 1000));
}

}  // namespace

Performance::Performance(const Options& options, Stage& stage, Screen& screen)
    : options_(options),
      stage_(stage),
      screen_(screen),
      // The service takes the same one: asking twice in two ways could send a broadcast somewhere else.
      broadcast_(ondra::net::broadcast_address("eth0")),
      steps_(expected_steps(broadcast_)) {}

std::vector<std::string> Performance::calls() {
    std::vector<std::string> names{"zones"};
    for (const StepExpectation& step : expected_steps({})) {
        names.push_back(step.name);
    }
    return names;
}

bool Performance::run() {
    set_up();
    play_alone();
    play_merged();
    pause_and_resume();
    send_to_nodes();
    send_to_broadcast();
    play_to_the_end();
    control_->stop();
    control_.reset();
    stage_.stop();
    screen_.headline("Summary: expected (worked out before the service started) against measured");
    screen_.say(summary_.text());
    return summary_.agrees();
}

void Performance::perform(const std::string& name, const std::function<void()>& call) {
    if (std::ranges::find(options_.skipped, name) != options_.skipped.end()) {
        screen_.say("   (left out: " + name + ")");
        return;
    }
    call();
}

void Performance::step(const std::string& name, const std::function<void()>& call, From from) {
    step(name, call, from, stage_.receiver(), [] { return true; });
}

void Performance::step(const std::string& name, const std::function<void()>& call, From from,
                       PacketReceiver& receiver, const std::function<bool()>& ended) {
    const StepExpectation& expected = expectation(name);
    StepJudge judge(expected, book_, ++round_);
    if (from == From::FirstPacket) {
        wait_for_marks(judge, expected, receiver);
        perform(name, call);
    } else {
        perform(name, call);
        wait_for_marks(judge, expected, receiver);
    }
    watch(judge, expected, receiver, ended);
    summary_.add(expected, judge);
}

void Performance::wait_for_marks(StepJudge& judge, const StepExpectation& step, PacketReceiver& receiver) {
    const auto settled = Clock::now() + kSettleTime;
    const auto deadline = settled + kMarkTime;
    bool sent = false;
    while (!judge.marked()) {
        if (!sent && Clock::now() >= settled) {
            for (std::uint32_t i = 0; i < step.destinations.size(); ++i) {
                stage_.marks().send({.round = round_, .destination = i}, step.destinations[i]);
            }
            sent = true;
        }
        if (Clock::now() >= deadline) {
            throw Failure("packets handed to the forwarder do not arrive any more");
        }
        stage_.wait_a_moment();
        take_packets(judge, step, receiver);
    }
}

void Performance::take_packets(StepJudge& judge, const StepExpectation& step, PacketReceiver& receiver) {
    for (ReceivedPacket& packet : receiver.take()) {
        judge.take(packet);
        if (step.streams.size() > 1) {
            if (std::string picture = merge_picture(step, book_, screen_.utf8()); !picture.empty()) {
                picture_ = std::move(picture);
            }
        }
        latest_ = std::move(packet);
    }
}

void Performance::watch(StepJudge& judge, const StepExpectation& step, PacketReceiver& receiver,
                        const std::function<bool()>& ended) {
    const auto begin = Clock::now();
    const auto deadline = begin + planned_time(step) + kGrace;
    auto redraw = begin;
    const auto over = [&] {
        return step.streams.empty() ? Clock::now() >= begin + step.silence : judge.complete() && ended();
    };
    while (!over() && Clock::now() < deadline) {
        stage_.wait_a_moment();
        take_packets(judge, step, receiver);
        if (Clock::now() >= redraw) {
            screen_.table(table_of(step, judge, screen_.utf8()), false);
            redraw = Clock::now() + kRedrawTime;
        }
    }
    screen_.table(table_of(step, judge, screen_.utf8()), true);
    if (step.streams.empty()) {
        screen_.say(judge.strays() == 0 ? "   Nothing comes out." : "   Something comes out.");
    }
}

void Performance::expect(const std::string& label, bool expected, bool answer) {
    const auto word = [](bool value) { return value ? "true" : "false"; };
    summary_.add_fact(label, word(expected), word(answer));
}

void Performance::headline(const std::string& text) {
    screen_.headline(std::to_string(++headlines_) + ". " + text);
}

const StepExpectation& Performance::expectation(const std::string& name) const {
    const auto found = std::ranges::find(steps_, name, &StepExpectation::name);
    assert(found != steps_.end());
    return *found;
}

}  // namespace demo
