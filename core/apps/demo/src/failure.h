#pragma once
// Why the demo ends before its end.

#include <stdexcept>
#include <string>

namespace demo {

/// Something that the demo needs is not to be had, or has gone; the text says what to do.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A signal asked the demo to end.
class Interrupted : public std::runtime_error {
public:
    explicit Interrupted(int signal)
        : std::runtime_error("interrupted by signal " + std::to_string(signal)), signal_(signal) {}

    [[nodiscard]] int signal() const noexcept { return signal_; }

private:
    int signal_;
};

}  // namespace demo
