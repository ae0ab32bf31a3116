#pragma once
// The discovery's object on the bus.

#include <functional>
#include <span>
#include <string>

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>
#include <QString>

#include "announcer.h"
#include "memory.h"
#include "node_table.h"

namespace netsurvey {

/**
 * Announces the table's changes to the player and answers who asks for the nodes.
 *
 * Main thread. Borrows the table, which must outlive it.
 */
class DiscoveryService final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.torvexserver.Netsurvey.Dump")

public:
    /// @param log  is told, a line each, what the user should know
    DiscoveryService(QDBusConnection bus, NodeTable& table, Memory memory,
                     std::function<void(const std::string&)> log);

    /// Takes up what an earlier run remembered.
    void recall();
    /// Looks for the player now and from now on. Call it with the name taken.
    void watch_player();
    /// Announces these changes, and remembers.
    void take_changes(const Changes& changes);

public Q_SLOTS:
    /// All present records, as "1:UNIVERSE:ADDRESS:PORT" separated by ";".
    QString list_nodes() const;
    /// All nodes as a JSON array.
    QString describe_nodes() const;

Q_SIGNALS:
    void OnArtnetNodesUpdated(const QString& message);

private:
    /// @param owner  the player's own name on the bus; empty without one
    void set_player(const QString& owner);
    /// Calls a method of the player's and goes on with `then` once it has answered.
    void ask(const QString& interface, const QString& method, const std::function<void()>& then);
    void announce_all();
    void send(const std::string& message);
    void store(std::span<const NodeRecord> records);

    QDBusConnection bus_;
    NodeTable& table_;
    Memory memory_;
    std::function<void(const std::string&)> log_;
    Announcer announcer_;
    QDBusServiceWatcher player_watcher_;
    QString player_;
    /// The last failure to store, so that it is told of once.
    std::string store_failure_;
};

}  // namespace netsurvey
