#pragma once
// Log lines on their way from the send thread to the main thread, which writes them.

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "posix/file_descriptor.h"

namespace forwarder {

/**
 * Bounded queue of finished lines. A standard error that is not read can hold up its writer without limit;
 * with the queue between, that is the main thread and never the one that sends.
 */
class LogQueue {
public:
    static constexpr std::size_t kMostLines = 64;

    LogQueue();

    /// Adds a line, or counts it as dropped while the queue is full. Any thread.
    void push(std::string line);
    /// Takes all lines, oldest first, and one about dropped lines where there were some. Any thread.
    [[nodiscard]] std::vector<std::string> take();
    /// Readable while there are lines.
    [[nodiscard]] int descriptor() const noexcept { return event_.get(); }

private:
    std::mutex mutex_;
    /// Guarded by `mutex_`.
    std::vector<std::string> lines_;
    /// Guarded by `mutex_`.
    std::uint64_t dropped_ = 0;
    posix::FileDescriptor event_;
};

}  // namespace forwarder
