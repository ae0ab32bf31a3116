#include "stage.h"

#include <array>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <system_error>

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCoreApplication>

#include "failure.h"

namespace demo {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr const char* kForwarderIp = "127.0.0.1";
constexpr const char* kReceiverIp = "127.0.0.2";
constexpr auto kStartTime = 30s;
/// For each, start and end, of the monitor, without which the show goes on.
constexpr auto kMonitorTime = 10s;
/// How long an event of the bus may wait until it is served.
constexpr int kMomentMilliseconds = 10;
/// A local socket's path has room for 108 characters.
constexpr std::size_t kLongestSocketPath = 100;
/// Round of the marks that ask whether the forwarder delivers.
constexpr std::uint32_t kRoadRound = 0;

/// A path as a bus address wants it: every unusual byte as a percent sign and two digits.
std::string escaped(const std::string& path) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (const char letter : path) {
        const auto byte = static_cast<unsigned char>(letter);
        if (std::isalnum(byte) != 0 || letter == '/' || letter == '-' || letter == '_' || letter == '.') {
            text += letter;
        } else {
            text += {'%', kDigits[byte >> 4], kDigits[byte & 0x0F]};
        }
    }
    return text;
}

std::string last_lines(const std::filesystem::path& log) {
    constexpr std::size_t kLines = 5;
    std::vector<std::string> lines;
    std::ifstream file(log);
    for (std::string line; std::getline(file, line);) {
        lines.push_back("  " + line);
        if (lines.size() > kLines) {
            lines.erase(lines.begin());
        }
    }
    std::string text;
    for (const std::string& line : lines) {
        text += "\n" + line;
    }
    return text.empty() ? text : "\nIts last words:" + text;
}

std::unique_ptr<ChildProcess> start(const std::string& name, const std::vector<std::string>& command,
                                    const std::vector<std::string>& environment,
                                    const std::filesystem::path& log) {
    try {
        return std::make_unique<ChildProcess>(name, command, environment, log);
    } catch (const std::system_error& error) {
        const std::string advice =
            error.code().value() == EACCES
                ? "\nWhere programs may not run from the temporary directory, set TMPDIR"
                : "";
        throw Failure(std::string(error.what()) + advice);
    }
}

std::unique_ptr<PacketReceiver> receive_at(const char* ip, std::uint16_t port) {
    try {
        return std::make_unique<PacketReceiver>(ip, port);
    } catch (const std::system_error& error) {
        if (error.code().value() == EADDRINUSE) {
            fail_port_taken(ip, port);
        }
        throw Failure(std::string("cannot receive on ") + ip + ": " + error.what() +
                      "; is the loopback interface up? (ip link set lo up)");
    }
}

void check_program(const std::filesystem::path& program) {
    if (access(program.c_str(), X_OK) != 0) {
        throw Failure("\"" + program.string() + "\" is not there; build it first (scripts/demo does)");
    }
}

}  // namespace

void fail_port_taken(const std::string& ip, std::uint16_t port) {
    const std::string number = std::to_string(port);
    throw Failure("port " + number + " on " + ip +
                  " is taken: an Art-Net program, a forwarder or another demo runs already.\n"
                  "End it (as root, \"ss -ulnp sport = :" +
                  number + "\" names it), or use another port: --port 7454");
}

SignalWatch::SignalWatch() {
    sigset_t handled;
    sigemptyset(&handled);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&handled, number);
    }
    sigprocmask(SIG_BLOCK, &handled, nullptr);
    // A reader of our output that goes away is no reason to leave programs behind.
    signal(SIGPIPE, SIG_IGN);
    descriptor_ = signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor_ == -1) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
}

SignalWatch::~SignalWatch() {
    close(descriptor_);
}

void SignalWatch::check() const {
    signalfd_siginfo info{};
    if (read(descriptor_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        throw Interrupted(static_cast<int>(info.ssi_signo));
    }
}

Stage::Stage(const Options& options, const SignalWatch& signals)
    : options_(options), signals_(signals), directory_(options.keep), marks_(options.port) {
    check_program(options.service);
    check_program(options.forwarder);
    try {
        check_port_is_free(kForwarderIp, options.port);
    } catch (const std::system_error&) {
        fail_port_taken(kForwarderIp, options.port);
    }
    receiver_ = receive_at(kReceiverIp, options.port);
}

std::filesystem::path Stage::write_bus_configuration() const {
    std::filesystem::path file = directory_.path() / "bus.conf";
    // Our own, so that no service of this machine is started by the bus.
    std::ofstream(file)
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n  <type>session</type>\n  <auth>EXTERNAL</auth>\n"
           "  <listen>"
        << bus_address_
        << "</listen>\n"
           "  <policy context=\"default\">\n    <allow send_destination=\"*\"/>\n"
           "    <allow receive_sender=\"*\"/>\n    <allow own=\"*\"/>\n  </policy>\n</busconfig>\n";
    return file;
}

void Stage::start_bus() {
    const std::string program = find_program("dbus-daemon");
    if (program.empty()) {
        throw Failure(
            "dbus-daemon is not installed, and the service needs a session bus; as root, run: apt-get "
            "install "
            "dbus-daemon");
    }
    const std::filesystem::path socket = directory_.path() / "bus";
    if (socket.string().size() > kLongestSocketPath) {
        throw Failure("\"" + socket.string() +
                      "\" is too long for a local socket; use a shorter directory (TMPDIR or --keep)");
    }
    bus_address_ = "unix:path=" + escaped(socket.string());
    bus_ = start("the session bus",
                 {program, "--config-file=" + write_bus_configuration().string(), "--nofork", "--nopidfile"},
                 {}, log_of("bus"));
    // The socket's file appears with the call that listens on it, or just before.
    if (!wait_for([&socket] { return std::filesystem::is_socket(socket); }, kStartTime)) {
        throw Failure("the session bus does not start" + last_lines(bus_->log()));
    }
}

std::string Stage::start_monitor(const std::filesystem::path& recording) {
    monitor_ = std::make_unique<LatenessMeter>(options_.monitor, recording, log_of("monitor"));
    if (!wait_for([this] { return monitor_->settled(); }, kMonitorTime)) {
        monitor_->give_up("the monitor does not start");
    }
    return monitor_->reason();
}

std::string Stage::stop_monitor() {
    monitor_->ask_to_end();
    // Killed after that; then it has measured nothing.
    static_cast<void>(wait_for([this] { return monitor_->ended(); }, kMonitorTime));
    return monitor_->result();
}

void Stage::start_forwarder() {
    // The second rule is the promise that nothing leaves this machine, wherever a packet is meant to go.
    std::vector<std::string> command{options_.forwarder.string(),
                                     "--port",
                                     std::to_string(options_.port),
                                     "--rewrite",
                                     std::string("192.0.2.0/24=") + kReceiverIp,
                                     "--rewrite",
                                     std::string("0.0.0.0/0=") + kReceiverIp};
    if (monitor_ != nullptr && !monitor_->place().empty()) {
        command.insert(command.end(), {"--tee", monitor_->place()});
    }
    forwarder_ = start("the forwarder", command, {"LC_ALL=C.UTF-8"}, log_of("forwarder"));
    wait_for_road();
}

void Stage::wait_for_road() {
    bool arrived = false;
    const auto deadline = Clock::now() + kStartTime;
    while (!arrived) {
        if (Clock::now() >= deadline) {
            throw Failure("the forwarder does not deliver" + last_lines(forwarder_->log()));
        }
        marks_.send({.round = kRoadRound, .destination = 0}, "192.0.2.1");
        wait_a_moment();
        for (const ReceivedPacket& packet : receiver_->take()) {
            arrived = arrived || read_mark(packet.bytes).has_value();
        }
    }
}

void Stage::stop_forwarder() {
    forwarder_->stop();
    forwarder_.reset();
}

void Stage::start_service() {
    // The service finds its data beside its own directory, whose name it takes after following links: so it
    // needs a file of its own there.
    const std::filesystem::path bin = directory_.path() / "bin";
    const std::filesystem::path program = bin / "cuewright";
    std::error_code error;
    std::filesystem::create_directories(bin, error);
    std::filesystem::create_hard_link(options_.service, program, error);
    if (error) {
        std::filesystem::copy_file(options_.service, program, error);
    }
    if (error) {
        throw Failure("cannot copy the service into \"" + bin.string() + "\": " + error.message());
    }
    service_ = start("the service", {program.string()},
                     {"DBUS_SESSION_BUS_ADDRESS=" + bus_address_, "LC_ALL=C.UTF-8"}, log_of("service"));
}

void Stage::wait_a_moment() {
    std::array<pollfd, 2> waits{{{signals_.descriptor(), POLLIN, 0}, {receiver_->descriptor(), POLLIN, 0}}};
    poll(waits.data(), waits.size(), kMomentMilliseconds);
    QCoreApplication::processEvents();
    check();
}

bool Stage::wait_for(const std::function<bool()>& condition, std::chrono::milliseconds deadline) {
    const auto end = Clock::now() + deadline;
    while (!condition()) {
        if (Clock::now() >= end) {
            return false;
        }
        wait_a_moment();
    }
    return true;
}

void Stage::check() {
    signals_.check();
    for (ChildProcess* const child : {bus_.get(), forwarder_.get(), service_.get()}) {
        if (child == nullptr) {
            continue;
        }
        if (const auto ending = child->ending()) {
            throw Failure(child->name() + " " + *ending + last_lines(child->log()));
        }
    }
}

void Stage::stop() {
    service_.reset();
    forwarder_.reset();
    monitor_.reset();
    bus_.reset();
}

}  // namespace demo
