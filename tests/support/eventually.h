#pragma once
// Waiting for a condition with a deadline, for tests.

#include <chrono>
#include <thread>

#include <QCoreApplication>

/**
 * True as soon as `condition` holds, false when it still does not at the deadline.
 *
 * Delivers the events of the calling thread's Qt objects meanwhile, if there is an application object. The
 * deadline is generous, since sanitizers and busy machines are slow: a passing test never waits for it.
 */
template <typename Condition>
[[nodiscard]] bool eventually(Condition condition,
                              std::chrono::milliseconds deadline = std::chrono::seconds(60)) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            // What came true while this process was kept from running still counts.
            return condition();
        }
        if (QCoreApplication::instance() != nullptr) {
            QCoreApplication::processEvents();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
