#pragma once
// A program started by a test, with its output captured.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <sys/types.h>

namespace tests {

/**
 * Starts a program with the test's environment and captures both outputs on a thread of its own. No signal is
 * blocked or ignored in it, whatever the test has inherited.
 *
 * The destructor kills a program that still runs, so that no test leaves one behind. All functions are called
 * from the test's thread.
 */
class ChildProgram {
public:
    static constexpr std::chrono::seconds kDeadline{60};

    /**
     * @param command      path of the program and its arguments
     * @param environment  "NAME=value" entries that are added or replace others
     * Throws std::system_error when the program cannot be started.
     */
    explicit ChildProgram(const std::vector<std::string>& command,
                          const std::vector<std::string>& environment = {});
    ~ChildProgram();
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    [[nodiscard]] pid_t pid() const noexcept { return pid_; }

    /// What has arrived so far.
    [[nodiscard]] std::string output() const;
    [[nodiscard]] std::string error_output() const;

    /// Waits until the output contains `text`; false at the deadline, or when the output has ended without
    /// it.
    [[nodiscard]] bool wait_for_output(std::string_view text,
                                       std::chrono::milliseconds deadline = kDeadline) const;
    [[nodiscard]] bool wait_for_error(std::string_view text,
                                      std::chrono::milliseconds deadline = kDeadline) const;

    void signal(int number) const;

    /// Stops it with SIGSTOP and waits until all its threads stand still; false when they do not. SIGCONT
    /// lets it go on.
    [[nodiscard]] bool halt(std::chrono::milliseconds deadline = kDeadline) const;

    /// Waits for the end of the program and of its outputs. Exit status; 128 plus the signal that ended it;
    /// nothing at the deadline.
    [[nodiscard]] std::optional<int> wait_exit(std::chrono::milliseconds deadline = kDeadline);

private:
    void capture(int output, int error);
    bool wait_for(const std::string& captured, std::string_view text,
                  std::chrono::milliseconds deadline) const;
    bool reap(std::chrono::milliseconds deadline);

    pid_t pid_ = -1;
    std::optional<int> status_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    /// Guarded by `mutex_`, as the two below.
    std::string output_;
    std::string error_;
    bool ended_ = false;
    std::thread capture_;
};

}  // namespace tests
