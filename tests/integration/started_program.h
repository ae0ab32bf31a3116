#pragma once
// A program that a test starts with an environment of its own.

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace integration {

/// Generous, since sanitizers and busy machines are slow: a passing test never waits for it.
inline constexpr std::chrono::seconds kDeadline{60};

/// True as soon as `condition` holds, false when it still does not at the deadline.
[[nodiscard]] bool wait_until(const std::function<bool()>& condition,
                              std::chrono::milliseconds deadline = kDeadline);

/// What to start, and how.
struct ProgramSettings {
    /// Path and arguments.
    std::vector<std::string> command;
    /// All of the child's environment, as "NAME=value": nothing is inherited.
    std::vector<std::string> environment;
    /// File that receives both outputs.
    std::string output_file;
    /// Runs in the child before the program, if given; system calls only. Its result, an error number, ends
    /// the child when it is not 0.
    std::function<int()> prepare;
};

/**
 * A running program. It dies with the test, whichever way the test ends. Used by the test's thread only.
 */
class StartedProgram {
public:
    explicit StartedProgram(const ProgramSettings& settings);
    StartedProgram(const StartedProgram&) = delete;
    StartedProgram& operator=(const StartedProgram&) = delete;
    ~StartedProgram();

    /// 0, or the number of the error that kept the program from starting.
    [[nodiscard]] int start_error() const { return start_error_; }
    [[nodiscard]] pid_t pid() const { return pid_; }
    void signal(int number) const;
    [[nodiscard]] bool running();
    /// The wait status; nothing when the program still runs at the deadline.
    [[nodiscard]] std::optional<int> wait_end(std::chrono::milliseconds deadline = kDeadline);

private:
    pid_t pid_ = -1;
    int start_error_ = 0;
    std::optional<int> status_;
};

}  // namespace integration
