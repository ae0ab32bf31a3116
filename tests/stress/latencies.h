#pragma once
// How long calls took, and what the machine did to them meanwhile.

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace stress {

/**
 * How late a thread comes that only sleeps a millisecond at a time: the machine's own share in a long call.
 */
class Pulse {
public:
    Pulse();
    Pulse(const Pulse&) = delete;
    Pulse& operator=(const Pulse&) = delete;
    ~Pulse();

    /// The longest delay since the last time. Any thread.
    std::chrono::nanoseconds take();

private:
    std::atomic<long long> longest_{0};
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

/// Times of calls by method, with the story of the longest of each.
class Latencies {
public:
    /// @param story  what the call was and what went on; asked for only when it is the longest so far
    template <typename Story>
    void add(const std::string& row, std::chrono::nanoseconds time, Story story) {
        Row& entry = rows_[row];
        entry.times.push_back(time);
        if (time > entry.longest) {
            entry.longest = time;
            entry.story = story();
        }
    }

    /// Prints count, p50, p99 and longest of each row, in milliseconds.
    void print() const;

private:
    struct Row {
        std::vector<std::chrono::nanoseconds> times;
        std::chrono::nanoseconds longest{0};
        std::string story;
    };

    std::map<std::string, Row> rows_;
};

}  // namespace stress
