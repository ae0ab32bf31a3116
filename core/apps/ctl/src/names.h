#pragma once
// The names under which the programs of the device are found on the bus.

#include <QString>

namespace ctl {

// The playback service: also the name of its interface.
inline const QString kPlayer = QStringLiteral("com.torvexserver.Cuewright");
// The discovery service, and its interface.
inline const QString kDiscovery = QStringLiteral("com.torvexserver.Netsurvey");
inline const QString kDiscoveryInterface = QStringLiteral("com.torvexserver.Netsurvey.Dump");
// Object of both.
inline const QString kRoot = QStringLiteral("/");
inline const QString kLogger = QStringLiteral("/logger");
// The bus daemon itself.
inline const QString kDaemon = QStringLiteral("org.freedesktop.DBus");

}  // namespace ctl
