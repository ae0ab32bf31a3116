#pragma once
// The real program, started by a test on a port of its own.

#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "support/child_program.h"
#include "udp_peer.h"

namespace tests {

inline QJsonValue at(const QJsonObject& object, const char* name) {
    return object.value(QLatin1String(name));
}

/// Started with --json; ended by the destructor at the latest.
class RunningForwarder {
public:
    explicit RunningForwarder(std::vector<std::string> arguments = {})
        : port_(free_port()), program_(command(port_, std::move(arguments))) {
        ready_ = program_.wait_for_error("listening on 127.0.0.1:" + std::to_string(port_) + ",");
    }

    /// False when it did not come up; then error_output() says why.
    [[nodiscard]] bool ready() const { return ready_; }
    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] ChildProgram& program() { return program_; }

    /// Asks for the counters and waits for them; empty when none come.
    [[nodiscard]] QJsonObject report() {
        const std::size_t before = reports().size();
        program_.signal(SIGUSR1);
        if (!eventually_reports(before + 1)) {
            return {};
        }
        return reports().back();
    }

    /// Asks for reports until `condition` holds of one; the last one, whatever it says, at the deadline.
    template <typename Condition>
    [[nodiscard]] QJsonObject report_when(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + UdpPeer::kDeadline;
        QJsonObject latest = report();
        while (!condition(latest) && std::chrono::steady_clock::now() < end) {
            latest = report();
        }
        return latest;
    }

    /// Ends it with a signal; its last report, or nothing unless the status is 0.
    [[nodiscard]] std::optional<QJsonObject> stop(int signal = SIGTERM) {
        program_.signal(signal);
        if (program_.wait_exit() != 0 || reports().empty()) {
            return std::nullopt;
        }
        return reports().back();
    }

    /// Every line so far that is a whole JSON object of this type.
    [[nodiscard]] std::vector<QJsonObject> reports(const char* type = "counters") const {
        std::vector<QJsonObject> found;
        const QList<QByteArray> lines = QByteArray::fromStdString(program_.output()).split('\n');
        for (const QByteArray& line : lines) {
            const QJsonObject object = QJsonDocument::fromJson(line).object();
            if (at(object, "type") == QLatin1String(type)) {
                found.push_back(object);
            }
        }
        return found;
    }

    static std::vector<std::string> command(std::uint16_t port, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {FORWARDER_PROGRAM, "--json", "--port", std::to_string(port)});
        return arguments;
    }

private:
    [[nodiscard]] bool eventually_reports(std::size_t count) const {
        const auto end = std::chrono::steady_clock::now() + UdpPeer::kDeadline;
        while (reports().size() < count) {
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }

    std::uint16_t port_;
    ChildProgram program_;
    bool ready_ = false;
};

/// The counters of the destination with this header address; empty when there is none.
inline QJsonObject destination_of(const QJsonObject& report, const char* address) {
    for (const QJsonValue entry : at(report, "destinations").toArray()) {
        if (at(entry.toObject(), "address") == QLatin1String(address)) {
            return entry.toObject();
        }
    }
    return {};
}

/// What the kernel charges for one waiting datagram of 554 bytes.
inline constexpr int kCharge = 1280;

inline int number_of(const QJsonObject& object, const char* name) {
    return at(object, name).toInt(-1);
}

}  // namespace tests
