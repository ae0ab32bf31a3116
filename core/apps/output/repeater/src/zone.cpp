#include "zone.h"

#include <utility>

#include <QDBusMetaType>

QDBusArgument& operator<<(QDBusArgument& argument, const Zone& zone) {
    argument.beginStructure();
    argument << zone.id << zone.priority;
    argument.beginArray(qMetaTypeId<int>());
    for (const int channel : zone.channels) {
        argument << channel;
    }
    argument.endArray();
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, Zone& zone) {
    argument.beginStructure();
    argument >> zone.id >> zone.priority;
    zone.channels.clear();
    argument.beginArray();
    while (!argument.atEnd()) {
        int channel = 0;
        argument >> channel;
        zone.channels.push_back(channel);
    }
    argument.endArray();
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const std::vector<Zone>& zones) {
    argument.beginArray(qMetaTypeId<Zone>());
    for (const Zone& zone : zones) {
        argument << zone;
    }
    argument.endArray();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, std::vector<Zone>& zones) {
    zones.clear();
    argument.beginArray();
    while (!argument.atEnd()) {
        Zone zone;
        argument >> zone;
        zones.push_back(std::move(zone));
    }
    argument.endArray();
    return argument;
}

void register_zone_types() {
    qRegisterMetaType<Zone>("Zone");
    qDBusRegisterMetaType<Zone>();
    qRegisterMetaType<std::vector<Zone>>("std::vector<Zone>");
    qDBusRegisterMetaType<std::vector<Zone>>();
}
