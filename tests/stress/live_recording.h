#pragma once
// A recording that never ends, fed through a named pipe while it plays.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/fifo.h"

namespace stress {

/**
 * Feeds whoever opens the pipe, on a thread of its own: at once what a playlist needs to begin, then a frame
 * each millisecond. It never waits for a reader, and takes up the next one when one has gone.
 */
class LiveRecording {
public:
    /**
     * @param path   the pipe, which is made
     * @param frame  what is written over and over; less than the 4096 bytes that a pipe takes whole
     */
    LiveRecording(const std::string& path, const std::vector<std::uint8_t>& frame);
    LiveRecording(const LiveRecording&) = delete;
    LiveRecording& operator=(const LiveRecording&) = delete;
    ~LiveRecording();

private:
    void feed();

    std::string path_;
    std::vector<std::uint8_t> frame_;
    /// Made by it, opened without it: a reader is not waited for.
    Fifo fifo_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace stress
