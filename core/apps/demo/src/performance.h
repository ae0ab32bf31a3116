#pragma once
// The demo from its first call to its summary.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "control.h"
#include "expectation.h"
#include "options.h"
#include "screen.h"
#include "stage.h"
#include "step_judge.h"
#include "summary.h"

namespace demo {

/**
 * Plays the show step by step: says what it does, calls the service, watches, judges.
 *
 * Main thread. Functions throw Failure or Interrupted.
 */
class Performance {
public:
    /// Borrows all of them for its whole life.
    Performance(const Options& options, Stage& stage, Screen& screen);

    /// Returns whether all agrees.
    [[nodiscard]] bool run();

    /// Names of the calls that may be left out, in their order.
    [[nodiscard]] static std::vector<std::string> calls();

private:
    /// Whether a step's packets are judged from the first one on, or from when its call has been answered.
    enum class From { FirstPacket, Answer };

    void set_up();
    void play_alone();
    void play_merged();
    void pause_and_resume();
    void send_to_nodes();
    void send_to_broadcast();
    void play_to_the_end();

    /// Makes a call, unless it is to be left out.
    void perform(const std::string& name, const std::function<void()>& call);
    /// Makes the call of the step with that name, watches and judges.
    void step(const std::string& name, const std::function<void()>& call, From from = From::Answer);
    /// The same, with packets that come over `receiver`; the step is over when `ended` holds, too.
    void step(const std::string& name, const std::function<void()>& call, From from, PacketReceiver& receiver,
              const std::function<bool()>& ended);
    void wait_for_marks(StepJudge& judge, const StepExpectation& step, PacketReceiver& receiver);
    void take_packets(StepJudge& judge, const StepExpectation& step, PacketReceiver& receiver);
    void watch(StepJudge& judge, const StepExpectation& step, PacketReceiver& receiver,
               const std::function<bool()>& ended);
    /// Notes an answer of the service that is to be true.
    void expect(const std::string& label, bool expected, bool answer);
    /// Shows the forwarding header of the latest packet.
    void show_header();
    void headline(const std::string& text);
    [[nodiscard]] const StepExpectation& expectation(const std::string& name) const;

    const Options& options_;
    Stage& stage_;
    Screen& screen_;
    /// Broadcast address of the wired interface; empty: none.
    std::string broadcast_;
    /// Worked out before anything is started.
    std::vector<StepExpectation> steps_;
    std::unique_ptr<Control> control_;
    LineBook book_;
    /// The latest packet with its forwarding header.
    ReceivedPacket latest_;
    /// The latest picture of a merge.
    std::string picture_;
    Summary summary_;
    std::uint32_t round_ = 0;
    int headlines_ = 0;
};

}  // namespace demo
