#pragma once
// Names on the bus.

#include <QString>

namespace netsurvey {

inline const QString kService = QStringLiteral("com.torvexserver.Netsurvey");
inline const QString kPath = QStringLiteral("/");
inline const QString kInterface = QStringLiteral("com.torvexserver.Netsurvey.Dump");
inline const QString kPlayer = QStringLiteral("com.torvexserver.Cuewright");

}  // namespace netsurvey
