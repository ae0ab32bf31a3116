#include "started_program.h"

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace integration {

namespace {

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

/// The child's part: system calls only, since other threads may hold any lock at the fork.
[[noreturn]] void run(const ProgramSettings& settings, char* const* command, char* const* environment,
                      int report) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // What a shell in the background or nohup has had ignored would stay so in the program.
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE}) {
        signal(number, SIG_DFL);
    }
    int error = settings.prepare ? settings.prepare() : 0;
    if (error == 0) {
        const int output = open(settings.output_file.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        execve(command[0], command, environment);
        error = errno;
    }
    const ssize_t written = write(report, &error, sizeof error);
    _exit(written == sizeof error ? 126 : 127);
}

}  // namespace

bool wait_until(const std::function<bool()>& condition, std::chrono::milliseconds deadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            // What came true while this process was kept from running still counts.
            return condition();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

StartedProgram::StartedProgram(const ProgramSettings& settings) {
    std::vector<std::string> command = settings.command;
    std::vector<std::string> environment = settings.environment;
    const std::vector<char*> command_pointers = pointers(command);
    const std::vector<char*> environment_pointers = pointers(environment);
    int report[2] = {-1, -1};
    if (pipe2(report, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    pid_ = fork();
    if (pid_ == 0) {
        run(settings, command_pointers.data(), environment_pointers.data(), report[1]);
    }
    close(report[1]);
    if (pid_ < 0) {
        close(report[0]);
        throw std::runtime_error("cannot fork");
    }
    // Closed by a program that starts, so the read ends without a byte then.
    if (read(report[0], &start_error_, sizeof start_error_) != sizeof start_error_) {
        start_error_ = 0;
    }
    close(report[0]);
}

StartedProgram::~StartedProgram() {
    if (running()) {
        signal(SIGKILL);
        // A killed process always ends.
        static_cast<void>(wait_end());
    }
}

void StartedProgram::signal(int number) const {
    if (!status_ && pid_ > 1) {
        kill(pid_, number);
    }
}

bool StartedProgram::running() {
    int status = 0;
    if (!status_ && waitpid(pid_, &status, WNOHANG) == pid_) {
        status_ = status;
    }
    return !status_;
}

std::optional<int> StartedProgram::wait_end(std::chrono::milliseconds deadline) {
    if (!wait_until([this] { return !running(); }, deadline)) {
        return std::nullopt;
    }
    return status_;
}

}  // namespace integration
