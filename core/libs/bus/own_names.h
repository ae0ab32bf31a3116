#pragma once
// The names that a connection has on the bus, without a race inside Qt.
//
// Qt keeps a list of them in each connection and looks into it before every call of a method, lest the call
// be one of the program's own. Qt's bus thread writes to the list when the daemon says that a name was
// acquired or lost, and takes no lock for it (Qt 5.15): a call that is made just then reads a list that is
// being moved, and the program crashes. The first such name is the unique one, which the daemon announces
// right behind its answer to the connecting.

#include <chrono>

#include <QDBusConnection>
#include <QString>

namespace bus {

/**
 * Asks the daemon for the name, without waiting in line for it.
 *
 * In place of QDBusConnection::registerService(), which adds to the list in the calling thread what the bus
 * thread adds as well. True when the name is this connection's; else its lastError() says why, which is empty
 * where somebody else has the name. False, too, for a connection that never was one. Blocks for the daemon's
 * answer.
 */
[[nodiscard]] bool own_name(const QDBusConnection& connection, const QString& name);

/// Gives up a name that own_name() has got, for the same reason in place of
/// QDBusConnection::unregisterService().
void disown_name(const QDBusConnection& connection, const QString& name);

/**
 * Waits until the bus thread has written down all names that the connection has got so far.
 *
 * To be called after connecting, and after own_name() or disown_name(), before the first call to another
 * program; calls to the daemon itself do not look into the list. Blocks for two answers of the daemon; a
 * daemon that has not answered after `time` is not asked again.
 */
void settle_own_names(const QDBusConnection& connection, std::chrono::milliseconds time);

}  // namespace bus
