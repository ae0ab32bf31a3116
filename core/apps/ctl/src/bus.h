#pragma once
// The session bus, asked with a limit in time.

#include <chrono>
#include <optional>
#include <string>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QString>
#include <QVariant>

#include "cli/program.h"

namespace ctl {

/// The bus, or a program on it that is needed, is not there.
inline constexpr int kExitNotThere = 3;
/// Something has not happened in the time it was given.
inline constexpr int kExitTimeout = 4;

/// How to reach the bus.
struct BusSettings {
    /// Empty: that of the environment.
    std::string address;
    /// How long a program on the bus may take to answer. The bus daemon itself gets ten seconds at least: it
    /// has nothing to wait for, and its silence would be taken for something else.
    std::chrono::milliseconds call_timeout{10'000};
};

/**
 * The address to connect to: the given one, else that of the environment, else the user's own bus.
 *
 * @param given              empty when the user names none
 * @param session            value of DBUS_SESSION_BUS_ADDRESS, null when there is none
 * @param runtime_directory  value of XDG_RUNTIME_DIR, null when there is none
 * Throws cli::Failure when there is none. An address that would start a bus is refused: an answer from a bus
 * that has just been made says nothing about the device.
 */
[[nodiscard]] std::string bus_address(const std::string& given, const char* session,
                                      const char* runtime_directory);

/// One method of one object.
struct Method {
    QString service;
    QString path;
    /// Empty: whichever of the object's interfaces has the method.
    QString interface;
    QString name;
};

/**
 * A connection to the session bus. Calls block, start no service and end after the time-out at the latest.
 *
 * Main thread. What fails is thrown as cli::Failure, with kExitNotThere or kExitTimeout where that is why.
 */
class Bus {
public:
    explicit Bus(const BusSettings& settings);
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    [[nodiscard]] QDBusConnection& connection() { return connection_; }
    [[nodiscard]] const std::string& address() const { return address_; }

    /// The answer's values.
    QVariantList call(const Method& method, const QVariantList& arguments = {}) const;
    /// The same of a method that answers one boolean, number or text.
    template <typename Value>
    [[nodiscard]] Value ask(const Method& method, const QVariantList& arguments = {}) const {
        return single_value(method, arguments, qMetaTypeId<Value>()).template value<Value>();
    }

    /// The connection that owns the name, as ":1.5"; nothing when nobody does.
    [[nodiscard]] std::optional<QString> owner_of(const QString& name) const;
    /// Process id behind a name.
    [[nodiscard]] int process_of(const QString& name) const;

private:
    [[nodiscard]] QDBusMessage send(const Method& method, const QVariantList& arguments) const;
    [[nodiscard]] QVariant single_value(const Method& method, const QVariantList& arguments, int type) const;
    [[noreturn]] void fail(const Method& method, const QDBusMessage& reply) const;
    [[nodiscard]] std::chrono::milliseconds timeout_of(const Method& method) const;

    std::string address_;
    std::chrono::milliseconds call_timeout_;
    QDBusConnection connection_;
};

}  // namespace ctl
