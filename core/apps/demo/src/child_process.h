#pragma once
// A program that the demo starts and is sure to end.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace demo {

/**
 * Starts a program on construction and ends it on destruction: first with a termination signal, after two
 * seconds with a kill. The kernel kills it when the demo's main thread ends in any other way.
 *
 * Main thread only.
 */
class ChildProcess {
public:
    /**
     * The program gets a process group of its own, so that an interrupt from the terminal reaches only the
     * demo, which then ends its programs in their order.
     *
     * @param name         for messages
     * @param command      path of the program and its arguments
     * @param environment  "NAME=value" entries that are added or replace others
     * @param log          file that takes both outputs
     * Throws std::system_error when it cannot be started.
     */
    ChildProcess(std::string name, const std::vector<std::string>& command,
                 const std::vector<std::string>& environment, std::filesystem::path log);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    [[nodiscard]] const std::filesystem::path& log() const noexcept { return log_; }

    /// How it ended, in words ("ended with status 1"); none while it runs.
    [[nodiscard]] std::optional<std::string> ending();
    /// The exit status; none while it runs and when a signal ended it.
    [[nodiscard]] std::optional<int> exit_status();
    /// Sends the termination signal, and waits for nothing.
    void ask_to_end() noexcept;
    /// Ends it and waits for that.
    void stop() noexcept;

private:
    /// True once it has ended.
    bool reap(bool block) noexcept;

    std::string name_;
    std::filesystem::path log_;
    pid_t pid_ = -1;
    std::optional<int> status_;
};

/// Path of a program in the directories of PATH; empty when there is none.
[[nodiscard]] std::string find_program(const std::string& name);

}  // namespace demo
