#pragma once
// One of the service's many callers: a connection of its own to the bus.

#include <string>

#include <QDBusMessage>
#include <QDBusPendingCall>

#include "bus_calls.h"
#include "controller.h"

namespace stress {

/// A call that is not answered within this is stuck.
inline constexpr int kStuckAfterMilliseconds = 60'000;

/// Calls the service. One thread at a time.
class BusClient {
public:
    explicit BusClient(const std::string& address) : connection_(address) {}

    /// Waits for the answer.
    QDBusMessage call(const BusCall& call);
    /// Sends a call and does not wait; the service answers in the order of sending.
    QDBusPendingCall begin(const BusCall& call);
    /// Sends a call that wants no answer.
    void send(const BusCall& call);
    /// Returns when the bus has passed on all that was sent before.
    [[nodiscard]] bool wait_for_bus();

    /// Takes the name of the discovery service and waits until the service under test knows it.
    [[nodiscard]] bool become_discovery();
    /// As the discovery service. The service hears it before any later call of the same client.
    [[nodiscard]] bool announce(const std::string& nodes);

private:
    integration::BusConnection connection_;
};

/// Empty when the message is the answer; otherwise what it is instead.
[[nodiscard]] std::string difference(const QDBusMessage& message, const Answer& expected);

}  // namespace stress
