#include "posix/stop_signals.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>

#include <poll.h>
#include <sys/signalfd.h>

namespace posix {

StopSignals::StopSignals() {
    sigset_t handled;
    sigemptyset(&handled);
    sigaddset(&handled, SIGINT);
    sigaddset(&handled, SIGTERM);
    // A blocked signal would come although it is ignored.
    struct sigaction hangup {};
    if (sigaction(SIGHUP, nullptr, &hangup) != 0 || hangup.sa_handler != SIG_IGN) {
        sigaddset(&handled, SIGHUP);
    }
    sigset_t blocked = handled;
    sigaddset(&blocked, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    descriptor_ = FileDescriptor(signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!descriptor_) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
}

std::optional<int> StopSignals::take() noexcept {
    signalfd_siginfo signal{};
    if (read(descriptor_.get(), &signal, sizeof signal) != static_cast<ssize_t>(sizeof signal)) {
        return std::nullopt;
    }
    return static_cast<int>(signal.ssi_signo);
}

std::optional<int> StopSignals::wait_for(std::chrono::milliseconds time) noexcept {
    pollfd wait{descriptor_.get(), POLLIN, 0};
    poll(&wait, 1, static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(time.count(), 0, 1'000'000)));
    return take();
}

}  // namespace posix
