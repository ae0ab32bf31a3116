#pragma once
// The programs that take part in the demo, and the place where all waiting is done.

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "child_process.h"
#include "lateness_meter.h"
#include "mark.h"
#include "options.h"
#include "packet_receiver.h"
#include "run_directory.h"

namespace demo {

/// Turns SIGINT, SIGTERM and SIGHUP into something to read. Must come before any thread.
class SignalWatch {
public:
    SignalWatch();
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }
    /// Throws Interrupted when a signal has come.
    void check() const;

private:
    int descriptor_;
};

/**
 * Starts bus, monitor, forwarder and service, in this order, and ends them in the reverse one.
 *
 * Main thread. Every function throws Failure when one of the programs but the monitor has ended, and
 * Interrupted after a signal.
 */
class Stage {
public:
    /// Borrows both for its whole life.
    Stage(const Options& options, const SignalWatch& signals);

    /// Throws Failure, with what to do, when a port is taken or a program is missing.
    void start_bus();
    /// Prepares the comparison with that recording. Returns why there is none; empty: there is one.
    std::string start_monitor(const std::filesystem::path& recording);
    /// With copies to the monitor as long as that runs.
    void start_forwarder();
    void start_service();
    /// Ends the forwarder, on purpose, to be started again.
    void stop_forwarder();
    /// Ends the monitor, which must have been started; see LatenessMeter::result().
    [[nodiscard]] std::string stop_monitor();

    /// Where the service reads its shows.
    [[nodiscard]] std::filesystem::path data_directory() const { return directory_.path() / "data"; }
    [[nodiscard]] const std::string& bus_address() const noexcept { return bus_address_; }
    /// What the forwarder delivers.
    [[nodiscard]] PacketReceiver& receiver() { return *receiver_; }
    [[nodiscard]] const MarkSender& marks() const noexcept { return marks_; }

    /// Serves the bus connection for a moment, or until a packet arrives.
    void wait_a_moment();
    /// Waits for the condition; false at the deadline.
    [[nodiscard]] bool wait_for(const std::function<bool()>& condition, std::chrono::milliseconds deadline);
    /// Throws when a signal has come or one of the programs but the monitor has ended.
    void check();
    /// Ends everything in order.
    void stop();

private:
    std::filesystem::path log_of(const std::string& name) const {
        return directory_.path() / (name + ".log");
    }
    std::filesystem::path write_bus_configuration() const;
    void wait_for_road();

    const Options& options_;
    const SignalWatch& signals_;
    RunDirectory directory_;
    MarkSender marks_;
    std::string bus_address_;
    std::unique_ptr<PacketReceiver> receiver_;
    std::unique_ptr<ChildProcess> bus_;
    std::unique_ptr<LatenessMeter> monitor_;
    std::unique_ptr<ChildProcess> forwarder_;
    std::unique_ptr<ChildProcess> service_;
};

/// Failure for a port of ours that another program has.
[[noreturn]] void fail_port_taken(const std::string& ip, std::uint16_t port);

}  // namespace demo
