#pragma once
// What comes from the bus unasked.

#include <functional>

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QEventLoop>
#include <QObject>
#include <QSocketNotifier>
#include <QString>

#include "bus.h"
#include "posix/stop_signals.h"

namespace ctl {

/**
 * Subscribes to the signals of player and discovery and to the comings and goings of both, from its
 * construction on. They are handed over while wait() runs; none gets lost in between.
 *
 * Main thread. The callbacks may be empty.
 */
class Listener final : public QObject {
    Q_OBJECT

public:
    /// @param bus   borrowed
    /// @param stop  borrowed; a signal ends wait()
    Listener(Bus& bus, posix::StopSignals& stop);

    std::function<void(int playlist)> on_playlist_stopped;
    /// The message as the discovery words it.
    std::function<void(const QString& message)> on_nodes;
    /// @param owner  empty when the name has none any more
    std::function<void(const QString& name, const QString& owner)> on_owner;

    /**
     * Hands over what comes until finish() is called, a stop signal comes or the time is over.
     *
     * @param milliseconds  0: without end
     * Returns what finish() was given, kTimeOver, or 128 and the number of the signal. Throws cli::Failure
     * when the bus goes away.
     */
    [[nodiscard]] int wait(int milliseconds = 0);
    static constexpr int kTimeOver = -1;
    /// For callbacks: ends wait(), also one that is yet to begin.
    void finish(int result);

private Q_SLOTS:
    void note_stopped(int playlist_id);
    void note_nodes(const QString& message);
    void note_owner(const QString& name, const QString& before, const QString& after);
    void note_end_of_bus();
    void note_stop_signal();

private:
    Bus& bus_;
    posix::StopSignals& stop_;
    QDBusServiceWatcher watcher_;
    QSocketNotifier stop_notifier_;
    QEventLoop loop_;
    bool finished_ = false;
    bool bus_gone_ = false;
    int result_ = 0;
};

}  // namespace ctl
