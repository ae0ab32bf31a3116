#pragma once
// Fixture of whole shows: exact time, control calls at chosen places, every datagram compared.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <sched.h>

#include "show_records.h"
#include "support/conductor.h"
#include "support/engine_test.h"

/// A datagram that a show must send.
struct Due {
    /// From the beginning of the show.
    std::chrono::nanoseconds time;
    model::Destination to;
    int universe = 0;
    /// Channels that the header states; the levels beyond those given are 0.
    int length = 0;
    std::vector<int> levels;
};

/**
 * The engine's worker is halted at the show's beginning, at time 0; it runs only in play_...() calls.
 *
 * Control calls between those fall between two cycles of the worker. Waits end at the very nanosecond.
 */
class WholeShowTest : public EngineTest {
protected:
    using nanoseconds = std::chrono::nanoseconds;
    using Call = std::function<void()>;

    WholeShowTest() {
        VirtualClock::set_exact(true);
        Conductor::reset();
        // Not in the first cycle: start() waits until that has idled.
        Conductor::halt_when([] { return Conductor::cycles() == 2; });
        start();
        EXPECT_TRUE(Conductor::wait_for_halt());
        begin_ = VirtualClock::now();
    }
    ~WholeShowTest() override { Conductor::let_go(); }

    /// Adds a playlist of one effect with its own timing.
    void add(ShowPlaylist playlist, ShowEffect effect, Recording recording);
    /// Plays it, loaded completely.
    void play(int id);

    /// Until `count` datagrams in all have been tried, and the frame of the last one is complete.
    void play_until_sent(std::size_t count);
    /// Until what is due at `time` has gone out.
    void play_until(nanoseconds time);
    /**
     * Goes on, and makes a call while the worker sends attempt `number`, counted from 1. A call that takes
     * the engine's lock waits for the end of the frame; `waits` says whether it does. Ends between two
     * cycles.
     */
    void call_while_sending(std::size_t number, bool waits, const Call& call);

    [[nodiscard]] static Due due(nanoseconds time, const std::string& ip, int port, int universe,
                                 const std::vector<int>& levels, int length = 0) {
        return {time, {ip, port}, universe, length == 0 ? static_cast<int>(levels.size()) : length, levels};
    }
    /// The whole of what was sent: moment, address and all 554 bytes of each.
    void expect_sent(const std::vector<Due>& expected) const;

private:
    ondra::Clock::time_point begin_;
};
