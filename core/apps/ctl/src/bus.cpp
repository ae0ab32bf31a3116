#include "bus.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <QDBusError>

#include "bus/own_names.h"
#include "bus_probe.h"
#include "names.h"
#include "zone.h"

namespace ctl {

namespace {

using namespace std::chrono_literals;

const QString kConnection = QStringLiteral("cuewrightctl");
constexpr std::chrono::milliseconds kDaemonTimeout = 10s;

std::string time_text(std::chrono::milliseconds time) {
    return QString::number(static_cast<double>(time.count()) / 1000.0).toStdString() + " s";
}

/// What a user can do about a program that is not on the bus.
std::string start_advice(const QString& service) {
    if (service == kPlayer) {
        return "start the service (cuewright) on this bus, or name its bus with --address";
    }
    if (service == kDiscovery) {
        return "start the discovery (cuewright-netsurvey) on this bus";
    }
    return "is it running?";
}

/// Connects, unless the daemon hangs.
QDBusConnection connect_to(const std::string& address, std::chrono::milliseconds time) {
    if (!daemon_answers(address, time)) {
        throw cli::Failure("the bus daemon at " + address + " has not answered within " + time_text(time) +
                               "; it hangs or is halted: see what has become of its process",
                           kExitTimeout);
    }
    // Before the connection, so that its thread, which may hold a zone to the end, ends before the types go.
    register_zone_types();
    const QDBusConnection connection =
        QDBusConnection::connectToBus(QString::fromStdString(address), kConnection);
    if (connection.isConnected()) {
        bus::settle_own_names(connection, time);
    }
    return connection;
}

bool is_absence(QDBusError::ErrorType error, const QString& name) {
    return error == QDBusError::ServiceUnknown ||
           name == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner");
}

bool is_silence(QDBusError::ErrorType error) {
    return error == QDBusError::NoReply || error == QDBusError::Timeout || error == QDBusError::TimedOut;
}

}  // namespace

std::string bus_address(const std::string& given, const char* session, const char* runtime_directory) {
    std::string address = given;
    if (address.empty() && session != nullptr) {
        address = session;
    }
    if (address.empty() && runtime_directory != nullptr) {
        const std::string path = std::string(runtime_directory) + "/bus";
        std::error_code failed;
        if (std::filesystem::is_socket(path, failed)) {
            address = "unix:path=" + path;
        }
    }
    if (address.empty()) {
        throw cli::Failure(
            "there is no session bus: DBUS_SESSION_BUS_ADDRESS is not set; run this in the session of the "
            "service, or name the bus with --address unix:path=...",
            kExitNotThere);
    }
    if (address.starts_with("autolaunch:")) {
        throw cli::Failure("the bus address " + address +
                               " would start a bus of its own; name the bus of the service with --address",
                           kExitNotThere);
    }
    return address;
}

Bus::Bus(const BusSettings& settings)
    : address_(bus_address(settings.address, std::getenv("DBUS_SESSION_BUS_ADDRESS"),
                           std::getenv("XDG_RUNTIME_DIR"))),
      call_timeout_(settings.call_timeout),
      connection_(connect_to(address_, std::max(call_timeout_, kDaemonTimeout))) {
    if (!connection_.isConnected()) {
        const std::string reason = connection_.lastError().message().toStdString();
        QDBusConnection::disconnectFromBus(kConnection);
        throw cli::Failure("cannot connect to the session bus at " + address_ + ": " + reason +
                               "; is its daemon running, and is it the bus of this user?",
                           kExitNotThere);
    }
}

Bus::~Bus() {
    QDBusConnection::disconnectFromBus(kConnection);
}

QVariantList Bus::call(const Method& method, const QVariantList& arguments) const {
    const QDBusMessage reply = send(method, arguments);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        fail(method, reply);
    }
    return reply.arguments();
}

std::optional<QString> Bus::owner_of(const QString& name) const {
    const Method method{kDaemon, QStringLiteral("/org/freedesktop/DBus"), kDaemon,
                        QStringLiteral("GetNameOwner")};
    const QDBusMessage reply = send(method, {name});
    if (reply.type() == QDBusMessage::ReplyMessage) {
        return reply.arguments().value(0).toString();
    }
    if (is_absence(QDBusError(reply).type(), reply.errorName())) {
        return std::nullopt;
    }
    fail(method, reply);
}

int Bus::process_of(const QString& name) const {
    const Method method{kDaemon, QStringLiteral("/org/freedesktop/DBus"), kDaemon,
                        QStringLiteral("GetConnectionUnixProcessID")};
    const QDBusMessage reply = send(method, {name});
    if (reply.type() == QDBusMessage::ReplyMessage) {
        return static_cast<int>(reply.arguments().value(0).toUInt());
    }
    if (is_absence(QDBusError(reply).type(), reply.errorName())) {
        throw cli::Failure(name.toStdString() + " is not on the bus: " + start_advice(name), kExitNotThere);
    }
    fail(method, reply);
}

QDBusMessage Bus::send(const Method& method, const QVariantList& arguments) const {
    QDBusMessage message =
        QDBusMessage::createMethodCall(method.service, method.path, method.interface, method.name);
    message.setArguments(arguments);
    // A service file must not bring up a second, empty player just because somebody asks.
    message.setAutoStartService(false);
    return connection_.call(message, QDBus::Block, static_cast<int>(timeout_of(method).count()));
}

QVariant Bus::single_value(const Method& method, const QVariantList& arguments, int type) const {
    const QVariantList values = call(method, arguments);
    if (values.size() != 1 || values.front().userType() != type) {
        throw cli::Failure(method.service.toStdString() + " answers " + method.name.toStdString() +
                           " with something else than expected: is it of another version?");
    }
    return values.front();
}

void Bus::fail(const Method& method, const QDBusMessage& reply) const {
    const std::string service = method.service.toStdString();
    const std::string name = method.name.toStdString();
    const QDBusError::ErrorType error = QDBusError(reply).type();
    if (is_absence(error, reply.errorName())) {
        throw cli::Failure(service + " is not on the bus: " + start_advice(method.service), kExitNotThere);
    }
    if (error == QDBusError::Disconnected) {
        throw cli::Failure("the session bus at " + address_ + " has gone", kExitNotThere);
    }
    if (is_silence(error)) {
        // The daemon answers so, too, for a program that ends with a call open.
        if (method.service != kDaemon && !owner_of(method.service)) {
            throw cli::Failure(
                service + " has ended instead of answering " + name + ": " + start_advice(method.service),
                kExitNotThere);
        }
        throw cli::Failure(
            service + " has not answered " + name + " within " + time_text(timeout_of(method)) +
                "; it may still do what was asked. Give it longer with --call-timeout, or see with "
                "\"cuewrightctl doctor\" whether it hangs",
            kExitTimeout);
    }
    throw cli::Failure(service + " answers " + name +
                       " with an error: " + reply.errorMessage().toStdString());
}

std::chrono::milliseconds Bus::timeout_of(const Method& method) const {
    return method.service == kDaemon ? std::max(call_timeout_, kDaemonTimeout) : call_timeout_;
}

}  // namespace ctl
