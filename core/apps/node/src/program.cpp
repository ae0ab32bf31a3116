#include "program.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <optional>
#include <system_error>
#include <vector>

#include <poll.h>
#include <sys/signalfd.h>

#include "artnet/universe_ranges.h"
#include "node_sockets.h"
#include "posix/ipv4.h"
#include "posix/stop_signals.h"
#include "report.h"

namespace node {

namespace {

using Clock = std::chrono::steady_clock;

/// Several times what the sockets hold.
constexpr int kLastRounds = 1000;

/// SIGUSR1 as something to read.
posix::FileDescriptor report_signal() {
    sigset_t handled;
    sigemptyset(&handled);
    sigaddset(&handled, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &handled, nullptr);
    posix::FileDescriptor descriptor(signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!descriptor) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    return descriptor;
}

/// A node on its sockets, from start to end.
class Run {
public:
    explicit Run(const Options& options)
        : options_(options),
          report_(report_signal()),
          sockets_(options.address, options.node.port),
          node_(options.node) {}

    void run() {
        std::fprintf(stderr, "cuewright-node: %s listening at %s:%u, universes %s\n",
                     options_.node.name.c_str(), posix::ipv4_text(options_.address.value_or(0)).c_str(),
                     unsigned{options_.node.port},
                     artnet::universe_ranges_text(options_.node.universes).c_str());
        while (!over() && !stop_.take()) {
            const bool any = receive();
            if (report_asked()) {
                print_report();
            }
            if (!any) {
                wait();
            }
        }
        // What had come before the end counts; what keeps coming does not.
        for (int i = 0; i < kLastRounds && receive(); ++i) {
        }
        print_report();
    }

private:
    /// Takes what has come; whether anything had.
    bool receive() {
        return sockets_.receive([this](const capture::Datagram& datagram) { take(datagram); });
    }

    void take(const capture::Datagram& datagram) {
        for (const PollReply& reply : node_.take(datagram)) {
            // To the Art-Net port, whichever port the poll came from. Who asks again is answered again, so a
            // refusal needs no more care.
            static_cast<void>(sockets_.send(reply, datagram.sender.address, options_.node.port));
        }
    }

    [[nodiscard]] bool over() const {
        return options_.duration && Clock::now() - begin_ >= *options_.duration;
    }

    bool report_asked() {
        signalfd_siginfo signal{};
        bool asked = false;
        while (read(report_.get(), &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
            asked = true;
        }
        return asked;
    }

    /// Sleeps until something comes or the time is over.
    void wait() {
        std::vector<pollfd> waits{{stop_.descriptor(), POLLIN, 0}, {report_.get(), POLLIN, 0}};
        for (const int socket : sockets_.descriptors()) {
            waits.push_back({socket, POLLIN, 0});
        }
        int timeout = -1;
        if (options_.duration) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(begin_ + *options_.duration - Clock::now());
            timeout = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 1'000'000'000));
        }
        poll(waits.data(), waits.size(), timeout);
    }

    void print_report() {
        const ReportFrame frame{Clock::now() - begin_, sockets_.kernel_drops()};
        std::fputs((options_.json ? to_json(node_, frame) : to_table(node_, frame)).c_str(), stdout);
        std::fflush(stdout);
    }

    const Options& options_;
    posix::StopSignals stop_;
    posix::FileDescriptor report_;
    NodeSockets sockets_;
    Node node_;
    Clock::time_point begin_ = Clock::now();
};

}  // namespace

int run_node(const Options& options) {
    Run(options).run();
    return cli::kExitGood;
}

}  // namespace node
