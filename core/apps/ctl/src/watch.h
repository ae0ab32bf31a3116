#pragma once
// Signals as they come.

#include <string>

#include <QDateTime>
#include <QJsonObject>
#include <QString>

#include "bus.h"

namespace ctl {

/// Prints a line an event until SIGINT or SIGTERM, or until nobody reads any more. Returns the exit status.
[[nodiscard]] int watch(const BusSettings& settings, bool json);

// The events, for tests: what --json prints, but for the time.
[[nodiscard]] QJsonObject stopped_event(int playlist);
[[nodiscard]] QJsonObject owner_event(const QString& name, const QString& owner);
[[nodiscard]] QJsonObject nodes_event(const QString& message);

/// An event as a line for people, with its time of day.
[[nodiscard]] std::string event_text(const QJsonObject& event, const QDateTime& time);

}  // namespace ctl
