#include "bus_client.h"

#include <chrono>
#include <sstream>

#include "bus/own_names.h"

namespace stress {

namespace {

const QString kService = QStringLiteral("com.torvexserver.Cuewright");
const QString kBus = QStringLiteral("org.freedesktop.DBus");
const QString kDiscovery = QStringLiteral("com.torvexserver.Netsurvey");

QDBusMessage message_of(const BusCall& call) {
    QDBusMessage message = QDBusMessage::createMethodCall(kService, call.path, call.interface, call.method);
    message.setArguments(call.arguments);
    return message;
}

}  // namespace

QDBusMessage BusClient::call(const BusCall& call) {
    return connection_.bus().call(message_of(call), QDBus::Block, kStuckAfterMilliseconds);
}

QDBusPendingCall BusClient::begin(const BusCall& call) {
    return connection_.bus().asyncCall(message_of(call), kStuckAfterMilliseconds);
}

void BusClient::send(const BusCall& call) {
    connection_.bus().send(message_of(call));
}

bool BusClient::wait_for_bus() {
    const QDBusMessage ask = QDBusMessage::createMethodCall(kBus, QStringLiteral("/org/freedesktop/DBus"),
                                                            kBus, QStringLiteral("GetId"));
    return connection_.bus().call(ask, QDBus::Block, kStuckAfterMilliseconds).type() ==
           QDBusMessage::ReplyMessage;
}

bool BusClient::become_discovery() {
    if (!bus::own_name(connection_.bus(), kDiscovery)) {
        return false;
    }
    bus::settle_own_names(connection_.bus(), std::chrono::milliseconds(kStuckAfterMilliseconds));
    // A signal right behind its sender's name may find the service not knowing that name yet; once it has
    // answered, it knows it.
    return call(RandomCalls::get_level()).type() == QDBusMessage::ReplyMessage;
}

bool BusClient::announce(const std::string& nodes) {
    QDBusMessage signal = QDBusMessage::createSignal(
        QStringLiteral("/"), kDiscovery + QStringLiteral(".Dump"), QStringLiteral("OnArtnetNodesUpdated"));
    signal << QString::fromStdString(nodes);
    return connection_.bus().send(signal);
}

std::string difference(const QDBusMessage& message, const Answer& expected) {
    const bool reply = message.type() == QDBusMessage::ReplyMessage;
    const std::string error = reply ? ""
                              : message.type() == QDBusMessage::ErrorMessage
                                  ? message.errorName().toStdString()
                                  : "no answer";
    std::ostringstream text;
    if (error != expected.error) {
        text << "the answer is \"" << error << "\" (" << message.errorMessage().toStdString()
             << ") instead of \"" << expected.error << '"';
    } else if (reply && message.signature().toStdString() != expected.signature) {
        text << "the answer has the signature \"" << message.signature().toStdString() << "\" instead of \""
             << expected.signature << '"';
    } else if (reply && expected.value.isValid() && message.arguments().value(0) != expected.value) {
        text << "the answer is " << message.arguments().value(0).toString().toStdString() << " instead of "
             << expected.value.toString().toStdString();
    }
    return text.str();
}

}  // namespace stress
