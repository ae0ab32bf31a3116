#include "child_process.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace demo {

namespace {

constexpr std::chrono::seconds kPatience{2};

std::vector<std::string> merged_environment(const std::vector<std::string>& added) {
    std::vector<std::string> merged = added;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('=') + 1);
        bool replaced = false;
        for (const std::string& own : added) {
            replaced = replaced || own.starts_with(name);
        }
        if (!replaced) {
            merged.push_back(text);
        }
    }
    return merged;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

/// Between fork and exec: only calls that are safe in a copy of a process with threads.
[[noreturn]] void become(char* const* arguments, char* const* environment, const char* log, pid_t parent,
                         int report) {
    // A parent that ended before this call would never be noticed.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(1);
    }
    setpgid(0, 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    const int output = open(log, O_WRONLY | O_CREAT | O_APPEND, 0600);
    const int input = open("/dev/null", O_RDONLY);
    if (output != -1 && input != -1 && dup2(input, STDIN_FILENO) != -1 && dup2(output, STDOUT_FILENO) != -1 &&
        dup2(output, STDERR_FILENO) != -1) {
        execve(arguments[0], arguments, environment);
    }
    const int error = errno;
    [[maybe_unused]] const ssize_t written = write(report, &error, sizeof error);
    _exit(1);
}

}  // namespace

ChildProcess::ChildProcess(std::string name, const std::vector<std::string>& command,
                           const std::vector<std::string>& environment, std::filesystem::path log)
    : name_(std::move(name)), log_(std::move(log)) {
    std::vector<std::string> words = command;
    std::vector<std::string> variables = merged_environment(environment);
    const std::vector<char*> arguments = pointers(words);
    const std::vector<char*> variable_pointers = pointers(variables);
    // Closed by a successful exec, so that nothing read means a start.
    std::array<int, 2> report{};
    const pid_t parent = getpid();
    if (pipe2(report.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot start " + name_);
    }
    pid_ = fork();
    if (pid_ == 0) {
        become(arguments.data(), variable_pointers.data(), log_.c_str(), parent, report[1]);
    }
    int error = pid_ == -1 ? errno : 0;
    close(report[1]);
    while (read(report[0], &error, sizeof error) == -1 && errno == EINTR) {
    }
    close(report[0]);
    if (error != 0) {
        if (pid_ != -1) {
            reap(true);
        }
        throw std::system_error(error, std::generic_category(), "cannot start " + command.front());
    }
}

ChildProcess::~ChildProcess() {
    stop();
}

std::optional<std::string> ChildProcess::ending() {
    if (!reap(false)) {
        return std::nullopt;
    }
    if (WIFSIGNALED(*status_)) {
        return std::string("was ended by signal ") + std::to_string(WTERMSIG(*status_)) + " (" +
               strsignal(WTERMSIG(*status_)) + ")";
    }
    return "ended with status " + std::to_string(WEXITSTATUS(*status_));
}

std::optional<int> ChildProcess::exit_status() {
    return reap(false) && WIFEXITED(*status_) ? std::optional<int>(WEXITSTATUS(*status_)) : std::nullopt;
}

void ChildProcess::ask_to_end() noexcept {
    if (!reap(false)) {
        kill(pid_, SIGTERM);
    }
}

void ChildProcess::stop() noexcept {
    if (reap(false)) {
        return;
    }
    kill(pid_, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!reap(false)) {
        if (std::chrono::steady_clock::now() >= deadline) {
            kill(pid_, SIGKILL);
            reap(true);
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

bool ChildProcess::reap(bool block) noexcept {
    if (status_) {
        return true;
    }
    int status = 0;
    pid_t result = 0;
    do {
        result = waitpid(pid_, &status, block ? 0 : WNOHANG);
    } while (result == -1 && errno == EINTR);
    if (result == pid_) {
        status_ = status;
    }
    return status_.has_value();
}

std::string find_program(const std::string& name) {
    const char* const path = std::getenv("PATH");
    std::istringstream directories(path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin");
    for (std::string directory; std::getline(directories, directory, ':');) {
        std::string candidate = directory;
        candidate.append("/").append(name);
        if (access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return {};
}

}  // namespace demo
