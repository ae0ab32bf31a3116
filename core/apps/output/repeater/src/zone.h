#pragma once
// A zone: a set of DMX channels with a priority, and how it travels on the bus.

#include <vector>

#include <QDBusArgument>
#include <QMetaType>

/**
 * Plain record. Where zones overlap on a channel, the one of the highest priority owns it.
 */
struct Zone {
    /// 0 or greater.
    int id = 0;
    /// The highest value wins a channel.
    int priority = 0;
    /// Channel indices in a universe, 0 to 511, in any order. Others are stored and never used.
    std::vector<int> channels;
};
Q_DECLARE_METATYPE(Zone)

/// Wire form: structure (iiai) of id, priority, channels.
QDBusArgument& operator<<(QDBusArgument& argument, const Zone& zone);
const QDBusArgument& operator>>(const QDBusArgument& argument, Zone& zone);
/// Wire form: array a(iiai).
QDBusArgument& operator<<(QDBusArgument& argument, const std::vector<Zone>& zones);
const QDBusArgument& operator>>(const QDBusArgument& argument, std::vector<Zone>& zones);

/// Registers "Zone" and "std::vector<Zone>" with the meta-type system and for the bus. Must come before an
/// object with Zone arguments is registered on the bus; more than once does no harm.
void register_zone_types();
