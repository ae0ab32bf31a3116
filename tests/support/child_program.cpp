#include "support/child_program.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tests {

namespace {

struct Pipe {
    int read = -1;
    int write = -1;
};

Pipe make_pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    return {ends[0], ends[1]};
}

std::vector<std::string> merged_environment(const std::vector<std::string>& added) {
    std::vector<std::string> merged = added;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view inherited = *entry;
        const std::string_view name = inherited.substr(0, inherited.find('=') + 1);
        bool replaced = false;
        for (const std::string& own : added) {
            replaced = replaced || own.starts_with(name);
        }
        if (!replaced) {
            merged.emplace_back(inherited);
        }
    }
    return merged;
}

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

pid_t start(std::vector<std::string> command, std::vector<std::string> environment, int output, int error) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, error, STDERR_FILENO);

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    pid_t pid = -1;
    const int result = posix_spawn(&pid, command.front().c_str(), &actions, &attributes,
                                   pointers_to(command).data(), pointers_to(environment).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    close(output);
    close(error);
    if (result != 0) {
        throw std::system_error(result, std::generic_category(), "cannot start " + command.front());
    }
    return pid;
}

}  // namespace

ChildProgram::ChildProgram(const std::vector<std::string>& command,
                           const std::vector<std::string>& environment) {
    const Pipe output = make_pipe();
    const Pipe error = make_pipe();
    pid_ = start(command, merged_environment(environment), output.write, error.write);
    capture_ = std::thread(&ChildProgram::capture, this, output.read, error.read);
}

ChildProgram::~ChildProgram() {
    if (!status_) {
        kill(pid_, SIGKILL);
        reap(kDeadline);
    }
    capture_.join();
}

std::string ChildProgram::output() const {
    const std::scoped_lock guard(mutex_);
    return output_;
}

std::string ChildProgram::error_output() const {
    const std::scoped_lock guard(mutex_);
    return error_;
}

bool ChildProgram::wait_for_output(std::string_view text, std::chrono::milliseconds deadline) const {
    return wait_for(output_, text, deadline);
}

bool ChildProgram::wait_for_error(std::string_view text, std::chrono::milliseconds deadline) const {
    return wait_for(error_, text, deadline);
}

void ChildProgram::signal(int number) const {
    if (!status_) {
        kill(pid_, number);
    }
}

bool ChildProgram::halt(std::chrono::milliseconds deadline) const {
    signal(SIGSTOP);
    const auto end = std::chrono::steady_clock::now() + deadline;
    // Told once the last of its threads has stopped.
    for (siginfo_t news{}; waitid(P_PID, static_cast<id_t>(pid_), &news, WSTOPPED | WNOHANG) == 0;) {
        if (news.si_pid == pid_) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

std::optional<int> ChildProgram::wait_exit(std::chrono::milliseconds deadline) {
    if (!reap(deadline)) {
        return std::nullopt;
    }
    std::unique_lock guard(mutex_);
    changed_.wait_for(guard, deadline, [this] { return ended_; });
    return status_;
}

void ChildProgram::capture(int output, int error) {
    std::array<pollfd, 2> waits{{{output, POLLIN, 0}, {error, POLLIN, 0}}};
    while (waits[0].fd >= 0 || waits[1].fd >= 0) {
        poll(waits.data(), waits.size(), -1);
        for (std::size_t i = 0; i < waits.size(); ++i) {
            if (waits[i].fd < 0 || waits[i].revents == 0) {
                continue;
            }
            std::array<char, 65536> buffer;
            const ssize_t size = read(waits[i].fd, buffer.data(), buffer.size());
            if (size <= 0) {
                close(waits[i].fd);
                waits[i].fd = -1;
                continue;
            }
            const std::scoped_lock guard(mutex_);
            (i == 0 ? output_ : error_).append(buffer.data(), static_cast<std::size_t>(size));
            changed_.notify_all();
        }
    }
    const std::scoped_lock guard(mutex_);
    ended_ = true;
    changed_.notify_all();
}

bool ChildProgram::wait_for(const std::string& captured, std::string_view text,
                            std::chrono::milliseconds deadline) const {
    std::unique_lock guard(mutex_);
    changed_.wait_for(guard, deadline, [&] { return ended_ || captured.find(text) != std::string::npos; });
    return captured.find(text) != std::string::npos;
}

bool ChildProgram::reap(std::chrono::milliseconds deadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!status_) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            break;
        }
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace tests
