#pragma once
// What a companion program ends with: exit statuses, and the exceptions that lead to them.

#include <stdexcept>
#include <string>

namespace cli {

// Exit statuses that all companions share; each program's help lists them, and its own from 3 on.
inline constexpr int kExitGood = 0;
/// What was asked for could not be done, or a check found something.
inline constexpr int kExitProblem = 1;
inline constexpr int kExitUsage = 2;

/// What was asked for cannot be done. The text is for the user: it names the file, the place and what was
/// expected. It begins in lower case and ends without a full stop.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& text, int status = kExitProblem)
        : std::runtime_error(text), status_(status) {}

    [[nodiscard]] int status() const noexcept { return status_; }

private:
    int status_;
};

/// The command line is wrong in a way that the option parser cannot see.
class UsageError : public Failure {
public:
    explicit UsageError(const std::string& text) : Failure(text, kExitUsage) {}
};

}  // namespace cli
