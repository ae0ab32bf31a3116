#pragma once
// A pseudo-terminal for tests.

#include <array>
#include <chrono>
#include <cstdlib>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "posix/file_descriptor.h"

namespace tests {

/// A pseudo-terminal; what is written into it is collected on this side. One thread.
class Terminal {
public:
    static constexpr std::chrono::seconds kDeadline{60};

    Terminal(unsigned short columns, unsigned short lines)
        : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        const winsize size{lines, columns, 0, 0};
        std::array<char, 64> name{};
        if (!master_ || grantpt(master_.get()) != 0 || unlockpt(master_.get()) != 0 ||
            ptsname_r(master_.get(), name.data(), name.size()) != 0 ||
            ioctl(master_.get(), TIOCSWINSZ, &size) != 0) {
            return;
        }
        // Held open, so that it outlives the program.
        slave_ = posix::FileDescriptor(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
        name_ = name.data();
    }

    /// Its path; empty when there are no terminals here.
    [[nodiscard]] const std::string& name() const { return slave_ ? name_ : kNone; }

    /// Takes what has arrived; waits up to 10 ms for something.
    void collect() {
        pollfd wait{master_.get(), POLLIN, 0};
        std::array<char, 4096> part{};
        if (poll(&wait, 1, 10) == 1) {
            const ssize_t size = read(master_.get(), part.data(), part.size());
            text_.append(part.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
        }
    }

    /// Collects until `condition` holds of all text so far; false at the deadline.
    template <typename Condition>
    [[nodiscard]] bool read_until(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + kDeadline;
        while (!condition(text_)) {
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
            collect();
        }
        return true;
    }
    [[nodiscard]] bool read_until_text(std::string_view wanted, std::size_t from = 0) {
        return read_until(
            [&](const std::string& text) { return text.find(wanted, from) != std::string::npos; });
    }

    /// What has been collected.
    [[nodiscard]] const std::string& text() const { return text_; }

private:
    inline static const std::string kNone;

    posix::FileDescriptor master_;
    posix::FileDescriptor slave_;
    std::string name_;
    std::string text_;
};

}  // namespace tests
