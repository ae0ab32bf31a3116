#include "bus_end.h"

#include <cstdio>

#include <QCoreApplication>

namespace netsurvey {

BusEnd::BusEnd(QDBusConnection bus) {
    // Not from the bus but from the bus library, so from nobody in particular.
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                SLOT(disconnected()));
}

void BusEnd::disconnected() {
    std::fputs("cuewright-netsurvey: the session bus has gone\n", stderr);
    QCoreApplication::exit(1);
}

}  // namespace netsurvey
