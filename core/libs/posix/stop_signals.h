#pragma once
// Turns the signals that end a program into something to read.

#include <chrono>
#include <optional>

#include "posix/file_descriptor.h"

namespace posix {

/**
 * Blocks SIGINT, SIGTERM and SIGHUP, and SIGPIPE, so that a reader that goes away is an error of a write.
 *
 * SIGHUP, by which a terminal or a connection ends that is closed, stays ignored where whoever started the
 * program has it ignored, as nohup does.
 *
 * Make one in main(), before any thread, which inherits the mask. The mask stays as it is afterwards: a
 * program that has begun to end is not to be cut off by a second Ctrl-C before its files are whole.
 */
class StopSignals {
public:
    /// Throws std::system_error when the system refuses.
    StopSignals();

    /// Readable once a signal has come; for poll().
    [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }
    /// The number of the signal that has come, if one has; takes it.
    [[nodiscard]] std::optional<int> take() noexcept;
    /// Sleeps until a signal comes or the time is over; what take() gives.
    [[nodiscard]] std::optional<int> wait_for(std::chrono::milliseconds time) noexcept;

private:
    FileDescriptor descriptor_;
};

}  // namespace posix
