#include "discovery_service.h"

#include <algorithm>
#include <climits>
#include <utility>
#include <vector>

#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QJsonDocument>

#include "names.h"
#include "node_list.h"

namespace netsurvey {

namespace {

/// The bus library's "no limit": a player that loads a long show answers when it is done.
constexpr int kNoTimeout = INT_MAX;

/// Whether somebody has answered, if only by refusing.
bool answered(const QDBusMessage& reply) {
    if (reply.type() == QDBusMessage::ReplyMessage) {
        return true;
    }
    switch (QDBusError(reply).type()) {
        case QDBusError::UnknownMethod:
        case QDBusError::UnknownInterface:
        case QDBusError::UnknownObject:
        case QDBusError::InvalidArgs:
            return true;
        default:
            return false;
    }
}

}  // namespace

DiscoveryService::DiscoveryService(QDBusConnection bus, NodeTable& table, Memory memory,
                                   std::function<void(const std::string&)> log)
    : bus_(std::move(bus)),
      table_(table),
      memory_(std::move(memory)),
      log_(std::move(log)),
      player_watcher_(kPlayer, bus_, QDBusServiceWatcher::WatchForOwnerChange) {
    connect(&player_watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& owner) { set_player(owner); });
}

void DiscoveryService::recall() {
    const auto now = NodeTable::Clock::now();
    for (const NodeRecord& record : memory_.load()) {
        // Nobody is told yet: who is there has it from the last run.
        static_cast<void>(table_.remember(record, now));
    }
}

void DiscoveryService::watch_player() {
    const QString owner = bus_.interface()->serviceOwner(kPlayer);
    if (!owner.isEmpty() && player_.isEmpty()) {
        announcer_.player_was_there();
        set_player(owner);
    }
}

void DiscoveryService::set_player(const QString& owner) {
    if (owner == player_) {
        return;
    }
    if (!player_.isEmpty()) {
        announcer_.player_has_gone();
    }
    player_ = owner;
    if (owner.isEmpty()) {
        return;
    }
    // It subscribes after taking its name. A ping shows that it is there, but is answered by a thread of the
    // bus library's, which may be ahead of that; anything else waits for the event loop, which comes after.
    ask(QStringLiteral("org.freedesktop.DBus.Peer"), QStringLiteral("Ping"), [this] {
        ask(QStringLiteral("org.freedesktop.DBus.Introspectable"), QStringLiteral("Introspect"),
            [this] { announce_all(); });
    });
}

void DiscoveryService::ask(const QString& interface, const QString& method,
                           const std::function<void()>& then) {
    // By its own name, so that no successor answers for it.
    const QDBusMessage call = QDBusMessage::createMethodCall(player_, kPath, interface, method);
    auto* const watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call, kNoTimeout), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, asked = player_, then](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                if (asked == player_ && answered(finished->reply())) {
                    then();
                }
            });
}

void DiscoveryService::take_changes(const Changes& changes) {
    const std::vector<NodeRecord> present = table_.present();
    const bool removes = std::ranges::any_of(changes, [](const Change& change) { return !change.present; });
    // Whatever the player holds must be in the file, should this process end between two of these steps. So
    // what goes leaves the file after the message, and what comes is in it before.
    std::vector<NodeRecord> both = present;
    for (const Change& change : changes) {
        both.push_back(change.record);
    }
    std::ranges::sort(both);
    both.erase(std::unique(both.begin(), both.end()), both.end());
    store(both);
    send(announcer_.announce(changes));
    if (removes) {
        store(present);
    }
}

void DiscoveryService::announce_all() {
    send(announcer_.announce_all(table_.present()));
}

void DiscoveryService::send(const std::string& message) {
    if (!message.empty()) {
        Q_EMIT OnArtnetNodesUpdated(QString::fromStdString(message));
    }
}

void DiscoveryService::store(std::span<const NodeRecord> records) {
    const std::string failure = memory_.store(records);
    if (failure != std::exchange(store_failure_, failure) && !failure.empty()) {
        log_("a later run will not know of nodes that leave in between: " + failure);
    }
}

QString DiscoveryService::list_nodes() const {
    Changes records;
    for (const NodeRecord& record : table_.present()) {
        records.push_back({true, record});
    }
    return QString::fromStdString(to_message(records));
}

QString DiscoveryService::describe_nodes() const {
    const QJsonArray nodes = to_json(table_.nodes(NodeTable::Clock::now()));
    return QString::fromUtf8(QJsonDocument(nodes).toJson(QJsonDocument::Compact));
}

}  // namespace netsurvey
