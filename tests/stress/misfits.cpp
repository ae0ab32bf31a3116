#include "misfits.h"

#include <vector>

#include <QByteArray>
#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusVariant>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include "controller.h"

namespace stress {

/// (iiau): nearly a zone.
struct UnsignedZone {
    int id = 0;
    int priority = 0;
    QList<uint> channels;
};

/// (isai): the same with a text.
struct NamedZone {
    int id = 0;
    QString priority;
    QList<int> channels;
};

/// (ii): a zone without channels.
struct ShortZone {
    int id = 0;
    int priority = 0;
};

QDBusArgument& operator<<(QDBusArgument& argument, const UnsignedZone& zone) {
    argument.beginStructure();
    argument << zone.id << zone.priority << zone.channels;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const NamedZone& zone) {
    argument.beginStructure();
    argument << zone.id << zone.priority << zone.channels;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const ShortZone& zone) {
    argument.beginStructure();
    argument << zone.id << zone.priority;
    argument.endStructure();
    return argument;
}

// Only sent: the registration asks for both directions.
const QDBusArgument& operator>>(const QDBusArgument& argument, UnsignedZone& /*zone*/) {
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, NamedZone& /*zone*/) {
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, ShortZone& /*zone*/) {
    return argument;
}

}  // namespace stress

Q_DECLARE_METATYPE(stress::UnsignedZone)
Q_DECLARE_METATYPE(stress::NamedZone)
Q_DECLARE_METATYPE(stress::ShortZone)

namespace stress {

namespace {

using integration::ControlZone;

struct Misfit {
    std::string signature;
    QList<QVariant> arguments;
};

std::vector<Misfit> all_misfits() {
    qDBusRegisterMetaType<UnsignedZone>();
    qDBusRegisterMetaType<NamedZone>();
    qDBusRegisterMetaType<ShortZone>();
    qDBusRegisterMetaType<QList<ShortZone>>();
    return {
        {"", {}},
        {"b", {true}},
        {"y", {QVariant::fromValue(uchar{1})}},
        {"n", {QVariant::fromValue(short{1})}},
        {"q", {QVariant::fromValue(ushort{1})}},
        {"i", {1}},
        {"u", {1U}},
        {"x", {qlonglong{1}}},
        {"t", {qulonglong{1}}},
        {"d", {1.0}},
        {"s", {QStringLiteral("1")}},
        {"o", {QVariant::fromValue(QDBusObjectPath(QStringLiteral("/")))}},
        {"g", {QVariant::fromValue(QDBusSignature(QStringLiteral("i")))}},
        {"v", {QVariant::fromValue(QDBusVariant(1))}},
        {"ay", {QByteArray("1")}},
        {"ai", {QVariant::fromValue(QList<int>{1, 2})}},
        {"as", {QStringList{QStringLiteral("1")}}},
        {"av", {QVariant(QVariantList{1, true})}},
        {"a{sv}", {QVariantMap{{QStringLiteral("id"), 1}}}},
        {"ii", {1, 1}},
        {"iii", {1, 1, 1}},
        {"bb", {true, true}},
        {"is", {1, QStringLiteral("1")}},
        {"iu", {1, 1U}},
        {"si", {QStringLiteral("1"), 1}},
        {"iiai", {1, 1, QVariant::fromValue(QList<int>{1})}},
        {"(ii)", {QVariant::fromValue(ShortZone{1, 1})}},
        {"(iiai)", {QVariant::fromValue(ControlZone{1, 1, {1}})}},
        {"(iiau)", {QVariant::fromValue(UnsignedZone{1, 1, {1}})}},
        {"(isai)", {QVariant::fromValue(NamedZone{1, QStringLiteral("1"), {1}})}},
        {"a(ii)", {QVariant::fromValue(QList<ShortZone>{{1, 1}})}},
        {"(iiai)i", {QVariant::fromValue(ControlZone{1, 1, {1}}), 1}},
        {"a(iiai)", {QVariant::fromValue(QList<ControlZone>{{1, 1, {1}}})}},
        {"a(iiai)i", {QVariant::fromValue(QList<ControlZone>{{1, 1, {1}}}), 1}},
    };
}

}  // namespace

QList<QVariant> misfit(model::Random& random, const std::string& signature) {
    static const std::vector<Misfit> all = all_misfits();
    for (;;) {
        const Misfit& drawn = random.of(all);
        if (drawn.signature != signature) {
            return drawn.arguments;
        }
    }
}

}  // namespace stress
