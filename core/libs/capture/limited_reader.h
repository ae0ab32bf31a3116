#pragma once
// Reads a source for as long as is wanted.

#include <chrono>
#include <functional>
#include <initializer_list>
#include <optional>

#include "capture/source.h"

namespace capture {

/// Until when to read; nothing: no limit.
struct Limits {
    /// From the beginning.
    std::optional<std::chrono::nanoseconds> duration;
    /// From the latest datagram that was wanted, once there is one.
    std::optional<std::chrono::nanoseconds> idle;
};

/**
 * Hands over what a source receives until a limit, and nothing that the kernel received later; what it
 * received before counts, however late it is read.
 *
 * wait() and read() by turns until the user has enough, then read_rest(). One thread. The source is borrowed.
 */
class LimitedReader {
public:
    /// @param take  called with every datagram
    LimitedReader(Source& source, const Limits& limits, std::function<void(const Datagram&)> take);

    /// Sleeps until there is a datagram, one of the descriptors is readable, or a limit may be reached.
    /// @param longest  the most, if that is less than a second
    void wait(std::chrono::nanoseconds longest, std::initializer_list<int> descriptors) const;
    /// Reads what is there, at most so much that the caller gets its turn. Whether a limit is reached.
    [[nodiscard]] bool read();
    /// Reads what had come until now, if no limit was before that.
    void read_rest();

    /// Called while a datagram is taken that is one of those whose absence is the idle limit.
    void note_wanted(const Datagram& datagram) noexcept { latest_ = datagram.time; }

private:
    /// True when nothing is there any more.
    bool read_batches(int most);

    Source& source_;
    std::function<void(const Datagram&)> take_;
    std::optional<std::chrono::nanoseconds> idle_;
    /// What came later is not handed over.
    std::optional<std::chrono::nanoseconds> end_;
    std::optional<std::chrono::nanoseconds> latest_;
    bool beyond_end_ = false;
};

}  // namespace capture
