#include "listener.h"

#include <QDBusError>
#include <QTimer>

#include "names.h"

namespace ctl {

namespace {

constexpr int kStatusOfSignal = 128;

}  // namespace

Listener::Listener(Bus& bus, posix::StopSignals& stop)
    : bus_(bus), stop_(stop), stop_notifier_(stop.descriptor(), QSocketNotifier::Read) {
    QDBusConnection& connection = bus.connection();
    connect(&stop_notifier_, &QSocketNotifier::activated, this, &Listener::note_stop_signal);
    watcher_.setConnection(connection);
    watcher_.setWatchMode(QDBusServiceWatcher::WatchForOwnerChange);
    watcher_.setWatchedServices({kPlayer, kDiscovery});
    connect(&watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this, &Listener::note_owner);
    const bool subscribed =
        connection.connect(kPlayer, kRoot, kPlayer, QStringLiteral("OnPlaylistStopped"), this,
                           SLOT(note_stopped(int))) &&
        connection.connect(kDiscovery, kRoot, kDiscoveryInterface, QStringLiteral("OnArtnetNodesUpdated"),
                           this, SLOT(note_nodes(QString))) &&
        connection.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                           QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                           SLOT(note_end_of_bus()));
    if (!subscribed) {
        throw cli::Failure("the session bus at " + bus.address() + " does not let this program listen: " +
                           connection.lastError().message().toStdString());
    }
}

int Listener::wait(int milliseconds) {
    QTimer timer;
    timer.setSingleShot(true);
    connect(&timer, &QTimer::timeout, this, [this] { finish(kTimeOver); });
    if (milliseconds > 0) {
        timer.start(milliseconds);
    }
    if (!finished_) {
        loop_.exec();
    }
    if (bus_gone_) {
        throw cli::Failure("the session bus at " + bus_.address() + " has gone", kExitNotThere);
    }
    finished_ = false;
    return result_;
}

void Listener::finish(int result) {
    // Of several reasons to end the first counts.
    if (!finished_) {
        finished_ = true;
        result_ = result;
    }
    loop_.quit();
}

void Listener::note_stopped(int playlist_id) {
    if (on_playlist_stopped) {
        on_playlist_stopped(playlist_id);
    }
}

void Listener::note_nodes(const QString& message) {
    if (on_nodes) {
        on_nodes(message);
    }
}

void Listener::note_owner(const QString& name, const QString& before, const QString& after) {
    static_cast<void>(before);
    if (on_owner) {
        on_owner(name, after);
    }
}

void Listener::note_end_of_bus() {
    bus_gone_ = true;
    finish(0);
}

void Listener::note_stop_signal() {
    if (const std::optional<int> number = stop_.take()) {
        finish(kStatusOfSignal + *number);
    }
}

}  // namespace ctl
