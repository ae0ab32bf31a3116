#pragma once
// A playlist that a test lets run beside a fault: no frame of it may be missing or late.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "forwarder_socket.h"
#include "sleeper.h"
#include "support/recording.h"

namespace integration {

/**
 * A looping playlist of numbered frames, 20 ms each, and the socket at which they arrive.
 *
 * A thread of its own takes the frames in, so that none is lost for want of room while the test does
 * something else; it ends with the object. All functions are for the test's thread.
 */
class Beat {
public:
    static constexpr int kPlaylist = 99;
    static constexpr int kUniverse = 999;

    Beat();
    Beat(const Beat&) = delete;
    Beat& operator=(const Beat&) = delete;
    ~Beat();

    [[nodiscard]] static Recording recording();
    [[nodiscard]] std::string output() const { return socket_.output(std::to_string(kUniverse)); }

    /// Frames so far.
    [[nodiscard]] std::size_t count() const;
    /// Waits for as many more from now on.
    [[nodiscard]] bool wait_for_more(std::size_t frames) const;
    /// Empty while every frame has followed the one before it; else where it first did not.
    [[nodiscard]] std::string first_gap() const;
    /// Empty while no frame has come later behind the one before it than `limit`, and than what the machine
    /// kept from this process meanwhile; else the first that has.
    [[nodiscard]] std::string first_standstill(std::chrono::nanoseconds limit) const;

private:
    struct Arrival {
        int mark;
        Sleeper::Time time;
    };

    void take_in();

    ForwarderSocket socket_;
    Sleeper sleeper_;
    /// Guards arrivals_.
    mutable std::mutex mutex_;
    /// The frames' numbers and times in the order of arrival.
    std::vector<Arrival> arrivals_;
    std::atomic<bool> running_{true};
    /// Last, so that all else is there when it starts.
    std::thread thread_;
};

/// `frames` numbered frames for `universe`, from 0 on, each for 20 ms.
[[nodiscard]] Recording numbered_frames(int universe, int frames);
/// The number of such a frame.
[[nodiscard]] int mark_of(const Frame& frame);

}  // namespace integration
