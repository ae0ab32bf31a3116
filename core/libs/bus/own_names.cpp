#include "own_names.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>

namespace bus {

bool own_name(const QDBusConnection& connection, const QString& name) {
    QDBusConnectionInterface* const daemon = connection.interface();
    return daemon != nullptr &&
           daemon->registerService(name).value() == QDBusConnectionInterface::ServiceRegistered;
}

void disown_name(const QDBusConnection& connection, const QString& name) {
    if (QDBusConnectionInterface* const daemon = connection.interface()) {
        static_cast<void>(daemon->unregisterService(name).isValid());
    }
}

void settle_own_names(const QDBusConnection& connection, std::chrono::milliseconds time) {
    const QString daemon = QStringLiteral("org.freedesktop.DBus");
    const QDBusMessage question = QDBusMessage::createMethodCall(
        daemon, QStringLiteral("/org/freedesktop/DBus"), daemon, QStringLiteral("GetId"));
    // The daemon has announced the names before its first answer. The bus thread queues each for itself when
    // it reads it, and sends the second question behind them.
    for (int round = 0; round < 2; ++round) {
        const QDBusMessage answer = connection.call(question, QDBus::Block, static_cast<int>(time.count()));
        if (answer.type() != QDBusMessage::ReplyMessage) {
            return;
        }
    }
}

}  // namespace bus
