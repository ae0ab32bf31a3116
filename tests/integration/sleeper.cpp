#include "sleeper.h"

#include <algorithm>

using namespace std::chrono_literals;

namespace integration {

namespace {

constexpr std::chrono::milliseconds kNap{5};
/// What is not worth remembering.
constexpr std::chrono::milliseconds kUsual{2};

}  // namespace

Sleeper::Sleeper() : thread_(&Sleeper::run, this) {}

Sleeper::~Sleeper() {
    {
        const std::scoped_lock guard(mutex_);
        running_ = false;
    }
    thread_.join();
}

std::chrono::nanoseconds Sleeper::overslept(Time from, Time until) const {
    std::unique_lock guard(mutex_);
    woken_.wait(guard, [this, until] { return told_ >= until; });
    std::chrono::nanoseconds sum{0};
    for (const Delay& delay : delays_) {
        sum +=
            std::max<std::chrono::nanoseconds>(0ns, std::min(delay.woken, until) - std::max(delay.due, from));
    }
    return sum;
}

void Sleeper::run() {
    std::unique_lock guard(mutex_);
    while (running_) {
        // From where the last one ended, so that a delay behind the lock counts, too.
        const Time due = told_ + kNap;
        guard.unlock();
        std::this_thread::sleep_until(due);
        guard.lock();
        const Time woken = std::chrono::steady_clock::now();
        if (woken > due + kUsual) {
            delays_.push_back({due, woken});
        }
        told_ = woken;
        woken_.notify_all();
    }
}

}  // namespace integration
