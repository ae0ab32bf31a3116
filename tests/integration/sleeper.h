#pragma once
// Tells a service that stands still from a machine that let nobody run.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace integration {

/**
 * A thread that does nothing but sleep, some milliseconds at a time: what it oversleeps is the machine's own
 * share in whatever came late meanwhile. It ends with the object. Functions may be called by any thread.
 */
class Sleeper {
public:
    using Time = std::chrono::steady_clock::time_point;

    Sleeper();
    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;
    ~Sleeper();

    /// How much of that time it overslept. Waits until it has slept past `until`, which may not lie ahead.
    [[nodiscard]] std::chrono::nanoseconds overslept(Time from, Time until) const;

private:
    struct Delay {
        Time due;
        Time woken;
    };

    void run();

    /// Guards all that follows but the thread.
    mutable std::mutex mutex_;
    mutable std::condition_variable woken_;
    /// Up to here delays_ is complete.
    Time told_ = std::chrono::steady_clock::now();
    std::vector<Delay> delays_;
    bool running_ = true;
    /// Last, so that all else is there when it starts.
    std::thread thread_;
};

}  // namespace integration
