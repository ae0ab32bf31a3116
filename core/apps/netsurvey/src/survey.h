#pragma once
// Asks again and again, and keeps the table of nodes.

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <QSocketNotifier>
#include <QTimer>

#include "node_table.h"
#include "poll_targets.h"
#include "survey_socket.h"

namespace netsurvey {

/// How to look for nodes.
struct SurveySettings {
    std::uint16_t port = artnet::kPort;
    /// Names of interfaces to poll on; empty: all.
    std::vector<std::string> interfaces;
    /// Addresses to poll instead of the interfaces' broadcast addresses, host byte order.
    std::vector<std::uint32_t> targets;
    std::chrono::milliseconds interval{2750};
    std::chrono::milliseconds expiry{10'000};
};

/// Main thread, in its event loop.
class Survey {
public:
    /// @param changed  is told of changes of the records, never an empty list
    /// @param log      is told, a line each, what the user should know
    /// Throws cli::Failure when the port cannot be had.
    Survey(const SurveySettings& settings, std::function<void(const Changes&)> changed,
           std::function<void(const std::string&)> log);
    Survey(const Survey&) = delete;
    Survey& operator=(const Survey&) = delete;

    [[nodiscard]] NodeTable& table() { return table_; }
    [[nodiscard]] std::uint16_t port() const { return socket_.port(); }

    /// Sends the first poll and goes on from the event loop.
    void start();

private:
    void poll();
    void take_in();
    void expire();
    void report(const Changes& changes);
    void note(const PollTarget& target, int error);
    [[nodiscard]] std::vector<PollTarget> targets() const;

    SurveySettings settings_;
    std::function<void(const Changes&)> changed_;
    std::function<void(const std::string&)> log_;
    NodeTable table_;
    SurveySocket socket_;
    QSocketNotifier readable_;
    QTimer poll_timer_;
    QTimer expiry_timer_;
    /// The last error of each target, so that each is told of once.
    std::map<std::uint32_t, int> errors_;
    bool without_target_ = false;
    bool told_of_refused_ = false;
};

}  // namespace netsurvey
