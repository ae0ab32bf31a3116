#pragma once
// Notices that the session bus has gone.

#include <QDBusConnection>
#include <QObject>

namespace netsurvey {

/// Ends the event loop with status 1 when the bus goes: a service manager starts the program anew, which
/// finds the next bus. Main thread.
class BusEnd final : public QObject {
    Q_OBJECT

public:
    explicit BusEnd(QDBusConnection bus);

private Q_SLOTS:
    void disconnected();
};

}  // namespace netsurvey
