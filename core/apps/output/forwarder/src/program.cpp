#include "program.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <poll.h>
#include <sys/signalfd.h>

#include "cli/live_screen.h"
#include "metrics_file.h"
#include "options.h"
#include "report.h"
#include "text.h"
#include "watch_output.h"

namespace forwarder {

namespace {

using Clock = std::chrono::steady_clock;

/// Datagrams that may wait here to be sent: four bursts of 2,000, in 4.7 MB.
constexpr std::size_t kSlots = 8192;

void log(const std::string& line) {
    std::fputs(("cuewright-forwarder: " + line + "\n").c_str(), stderr);
}

/// Turns the signals of interest into something to read. Must come before any thread, which inherits the
/// mask.
posix::FileDescriptor block_signals() {
    sigset_t handled;
    sigemptyset(&handled);
    for (const int signal : {SIGINT, SIGTERM, SIGUSR1}) {
        sigaddset(&handled, signal);
    }
    sigset_t blocked = handled;
    sigaddset(&blocked, SIGPIPE);  // a reader of the reports that goes away must not end the forwarding
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    posix::FileDescriptor descriptor(signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!descriptor) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    return descriptor;
}

using Sockets = std::vector<std::unique_ptr<ReceiveSocket>>;

/// Opens one socket per port; an exit status when one fails.
std::optional<int> open_sockets(const Options& options, Sockets& sockets) {
    for (const std::uint16_t port : options.ports) {
        auto socket = std::make_unique<ReceiveSocket>();
        if (const auto failure = socket->open(port)) {
            log(failure->message);
            return failure->port_in_use ? kExitPortInUse : kExitFailure;
        }
        sockets.push_back(std::move(socket));
    }
    for (const auto& socket : sockets) {
        log(text("listening on 127.0.0.1:%u, receive buffer %d bytes", unsigned{socket->port()},
                 socket->receive_buffer()));
    }
    if (const std::string advice = receive_buffer_advice(sockets.front()->receive_buffer());
        !advice.empty()) {
        log(advice);
    }
    return std::nullopt;
}

/// The thread of the forwarding and what it uses, in the order in which they depend on each other.
class Forwarder {
public:
    Forwarder(const Options& options, const Sockets& sockets, posix::FileDescriptor signals)
        : sockets_(sockets),
          json_(options.json),
          signals_(std::move(signals)),
          intake_(sockets_, kSlots),
          sender_(intake_, options, log_queue_, options.watch ? &statistics_ : nullptr) {
        if (options.watch) {
            watch_.emplace(options.json);
        }
        if (!options.metrics.empty()) {
            metrics_.emplace(options.metrics);
        }
    }

    /// Serves signals, log lines and the view until SIGINT or SIGTERM; then settles and reports.
    void run() {
        Clock::time_point next_view = watch_ ? Clock::now() : Clock::time_point::max();
        Clock::time_point next_metrics = metrics_ ? Clock::now() : Clock::time_point::max();
        while (!take_signals()) {
            write_log();
            if (Clock::now() >= next_view) {
                watch_->show(statistics_, take_report(sockets_, intake_, sender_));
                next_view = Clock::now() + watch_->period();
            }
            if (Clock::now() >= next_metrics) {
                write_metrics();
                next_metrics = Clock::now() + MetricsFile::kPeriod;
            }
            wait(std::min(next_view, next_metrics));
        }
        intake_.stop();
        sender_.join();
        write_log();
        if (metrics_) {
            write_metrics();
        }
        print_report();
    }

private:
    /// Sleeps until a signal, a log line or the time, without a bound when that is the end of time.
    void wait(Clock::time_point until) {
        int timeout = -1;
        if (until != Clock::time_point::max()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
            timeout = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
        }
        std::array<pollfd, 2> waits{{{signals_.get(), POLLIN, 0}, {log_queue_.descriptor(), POLLIN, 0}}};
        poll(waits.data(), waits.size(), timeout);
    }

    /// True once the program is to end.
    bool take_signals() {
        signalfd_siginfo signal{};
        while (read(signals_.get(), &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
            if (signal.ssi_signo != SIGUSR1) {
                return true;
            }
            print_report();
        }
        return false;
    }

    void print_report() {
        if (watch_) {
            watch_->leave_screen();
        }
        const Report report = take_report(sockets_, intake_, sender_);
        cli::print(json_ ? to_json(report) : to_table(report));
    }

    void write_metrics() {
        const Report report = take_report(sockets_, intake_, sender_);
        if (const std::string failure = metrics_->write(to_prometheus(report, metrics_->failures()));
            !failure.empty()) {
            log(failure);
        }
    }

    void write_log() {
        const std::vector<std::string> lines = log_queue_.take();
        if (!lines.empty() && watch_) {
            watch_->leave_screen();  // where the next view would draw over them
        }
        for (const std::string& line : lines) {
            log(line);
        }
    }

    const Sockets& sockets_;
    bool json_;
    posix::FileDescriptor signals_;
    WatchStatistics statistics_;
    LogQueue log_queue_;
    Intake intake_;
    Sender sender_;
    std::optional<WatchOutput> watch_;
    std::optional<MetricsFile> metrics_;
};

}  // namespace

int run_program(int argc, const char* const* argv) {
    const ParsedOptions parsed = parse_options(argc, argv);
    if (parsed.exit_status) {
        std::fputs(parsed.message.c_str(), *parsed.exit_status == kExitClean ? stdout : stderr);
        return *parsed.exit_status;
    }
    try {
        posix::FileDescriptor signals = block_signals();
        Sockets sockets;
        if (const auto status = open_sockets(parsed.options, sockets)) {
            return *status;
        }
        Forwarder(parsed.options, sockets, std::move(signals)).run();
        return kExitClean;
    } catch (const std::exception& error) {
        log(error.what());
        return kExitFailure;
    }
}

}  // namespace forwarder
