#include "lateness_meter.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <system_error>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QJsonDocument>
#include <QJsonObject>

namespace demo {

namespace {

/// Of its own, so that the port that is free there is none of the show's.
constexpr const char* kMonitorIp = "127.0.0.3";

/// What the monitor says at the start: the place stands between the two.
constexpr const char* kPlaceBegin = "listening on ";
constexpr const char* kPlaceEnd = ", receive buffer";

std::vector<std::string> lines_of(const std::filesystem::path& log) {
    std::vector<std::string> lines;
    std::ifstream file(log);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// Empty as long as the monitor has not said it.
std::string place_in(const std::filesystem::path& log) {
    for (const std::string& line : lines_of(log)) {
        const std::size_t begin = line.find(kPlaceBegin);
        const std::size_t end = line.find(kPlaceEnd);
        if (begin != std::string::npos && end != std::string::npos) {
            const std::size_t from = begin + std::string(kPlaceBegin).size();
            return line.substr(from, end - from);
        }
    }
    return {};
}

/// The monitor's answer, which is the last thing that it says.
std::optional<QJsonObject> comparison_in(const std::filesystem::path& log) {
    const std::vector<std::string> lines = lines_of(log);
    if (lines.empty()) {
        return std::nullopt;
    }
    const QJsonObject object = QJsonDocument::fromJson(QByteArray::fromStdString(lines.back())).object();
    return object[QLatin1String("type")] == QLatin1String("comparison") ? std::optional(object)
                                                                        : std::nullopt;
}

std::string text_of(const QJsonObject& comparison) {
    const QJsonObject lateness = comparison[QLatin1String("lateness_ns")].toObject();
    const auto milliseconds = [&lateness](const char* rank) {
        return lateness[QLatin1String(rank)].toDouble() / 1e6;
    };
    std::array<char, 256> row{};
    std::snprintf(row.data(), row.size(), "%-37s %7d %8.3f %8.3f %8.3f %8.3f\n", "lateness of the chase, ms",
                  comparison[QLatin1String("compared")].toInt(), milliseconds("min"), milliseconds("p50"),
                  milliseconds("p99"), milliseconds("max"));
    return std::string(
               "                                      packets      min      p50      p99      max\n") +
           row.data() +
           "(shown, not judged: cuewright-monitor on the forwarder's copies, against the\n"
           " recording's own timing, the first packet being on time)\n";
}

/// A socket that takes what is sent to a place and throws it away once its buffer is full. It may fail to
/// come about: then the forwarder has refused copies to complain of.
posix::FileDescriptor deaf_socket(const std::string& place) {
    posix::FileDescriptor descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    const int smallest = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(kMonitorIp);
    address.sin_port = htons(static_cast<std::uint16_t>(std::atoi(place.c_str() + place.find(':') + 1)));
    setsockopt(descriptor.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(descriptor.get(), SOL_SOCKET, SO_RCVBUF, &smallest, sizeof smallest);
    [[maybe_unused]] const int result =
        bind(descriptor.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    return descriptor;
}

}  // namespace

LatenessMeter::LatenessMeter(const std::filesystem::path& program, const std::filesystem::path& recording,
                             const std::filesystem::path& log)
    : log_(log) {
    if (access(program.c_str(), X_OK) != 0) {
        reason_ = "\"" + program.string() + "\" is not there";
        return;
    }
    try {
        monitor_ = std::make_unique<ChildProcess>(
            "the monitor",
            std::vector<std::string>{program.string(), "--address", kMonitorIp, "--port", "0", "--wrapped",
                                     "--compare", recording.string(), "--json"},
            std::vector<std::string>{"LC_ALL=C.UTF-8"}, log);
    } catch (const std::system_error& error) {
        reason_ = error.what();
    }
}

bool LatenessMeter::settled() {
    if (place_.empty() && reason_.empty()) {
        // Asked before the log is read, which then holds all that it ever says.
        const bool over = ended();
        place_ = place_in(log_);
        if (place_.empty() && over) {
            reason_ = ending();
        }
    }
    return !place_.empty() || !reason_.empty();
}

void LatenessMeter::give_up(const std::string& reason) {
    if (!settled()) {
        monitor_.reset();
        reason_ = reason;
    }
}

void LatenessMeter::ask_to_end() {
    if (place_.empty()) {
        return;
    }
    // The forwarder goes on sending copies. With nobody there, each would come back to it as an error.
    stand_in_ = deaf_socket(place_);
    monitor_->ask_to_end();
}

bool LatenessMeter::ended() {
    return monitor_ == nullptr || monitor_->ending().has_value();
}

std::string LatenessMeter::result() {
    place_.clear();
    if (reason_.empty()) {
        monitor_->stop();
        const std::optional<QJsonObject> comparison = comparison_in(log_);
        if (comparison && monitor_->exit_status() == 0) {
            return text_of(*comparison);
        }
        reason_ = ending();
    }
    return "lateness of the chase: not measured; " + reason_ + "\n";
}

std::string LatenessMeter::ending() const {
    const std::vector<std::string> lines = lines_of(log_);
    const bool spoke = !lines.empty() && !lines.back().starts_with("{");
    return "the monitor " + *monitor_->ending() + (spoke ? ": " + lines.back() : "");
}

}  // namespace demo
