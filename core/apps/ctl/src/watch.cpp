#include "watch.h"

#include <cstdio>

#include <QJsonArray>
#include <QJsonDocument>

#include "listener.h"
#include "names.h"
#include "posix/stop_signals.h"

namespace ctl {

namespace {

/// In one record of the discovery: state, universe, address, port.
constexpr int kRecordFields = 4;

QString nodes_text(const QJsonArray& records) {
    QStringList texts;
    for (const QJsonValue record : records) {
        const QJsonObject node = record.toObject();
        texts.append(QStringLiteral("%1%2:%3 on universe %4")
                         .arg(node.value(QLatin1String("present")).toBool() ? QStringLiteral("+")
                                                                            : QStringLiteral("-"),
                              node.value(QLatin1String("address")).toString())
                         .arg(node.value(QLatin1String("port")).toInt())
                         .arg(node.value(QLatin1String("universe")).toInt()));
    }
    return texts.isEmpty() ? QStringLiteral("no record") : texts.join(QStringLiteral(", "));
}

}  // namespace

QJsonObject stopped_event(int playlist) {
    return {{QStringLiteral("event"), QStringLiteral("playlist_stopped")},
            {QStringLiteral("playlist_id"), playlist}};
}

QJsonObject owner_event(const QString& name, const QString& owner) {
    return {{QStringLiteral("event"), QStringLiteral("owner")},
            {QStringLiteral("name"), name},
            {QStringLiteral("present"), !owner.isEmpty()},
            {QStringLiteral("owner"), owner}};
}

QJsonObject nodes_event(const QString& message) {
    QJsonArray records;
    const QStringList texts = message.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    for (const QString& text : texts) {
        // As the service reads them: what has not four fields is no record.
        const QStringList fields = text.split(QLatin1Char(':'));
        if (fields.size() == kRecordFields) {
            records.append(QJsonObject{{QStringLiteral("present"), fields[0] == QLatin1String("1")},
                                       {QStringLiteral("universe"), fields[1].toInt()},
                                       {QStringLiteral("address"), fields[2]},
                                       {QStringLiteral("port"), fields[3].toInt()}});
        }
    }
    return {{QStringLiteral("event"), QStringLiteral("nodes")},
            {QStringLiteral("message"), message},
            {QStringLiteral("records"), records}};
}

std::string event_text(const QJsonObject& event, const QDateTime& time) {
    const QString kind = event.value(QLatin1String("event")).toString();
    QString text;
    if (kind == QLatin1String("playlist_stopped")) {
        text = QStringLiteral("playlist %1 has ended").arg(event.value(QLatin1String("playlist_id")).toInt());
    } else if (kind == QLatin1String("owner")) {
        const QString owner = event.value(QLatin1String("owner")).toString();
        text =
            event.value(QLatin1String("name")).toString() +
            (owner.isEmpty() ? QStringLiteral(" is not there") : QStringLiteral(" is there (%1)").arg(owner));
    } else {
        text = QStringLiteral("nodes: ") + nodes_text(event.value(QLatin1String("records")).toArray());
    }
    return (time.toString(QStringLiteral("HH:mm:ss.zzz")) + QStringLiteral("  ") + text).toStdString();
}

int watch(const BusSettings& settings, bool json) {
    // Before the bus, whose thread inherits what is blocked.
    posix::StopSignals stop;
    Bus bus(settings);
    Listener listener(bus, stop);
    const auto print = [&](QJsonObject event) {
        const QDateTime now = QDateTime::currentDateTime();
        std::string line;
        if (json) {
            event.insert(QStringLiteral("time"), now.toUTC().toString(Qt::ISODateWithMs));
            line = QJsonDocument(event).toJson(QJsonDocument::Compact).toStdString();
        } else {
            line = event_text(event, now);
        }
        std::printf("%s\n", line.c_str());
        if (std::fflush(stdout) != 0) {
            listener.finish(cli::kExitGood);
        }
    };
    listener.on_playlist_stopped = [&](int playlist) { print(stopped_event(playlist)); };
    listener.on_nodes = [&](const QString& message) { print(nodes_event(message)); };
    listener.on_owner = [&](const QString& name, const QString& owner) { print(owner_event(name, owner)); };
    for (const QString& name : {kPlayer, kDiscovery}) {
        print(owner_event(name, bus.owner_of(name).value_or(QString())));
    }
    // Ending it is how one uses it.
    static_cast<void>(listener.wait());
    return cli::kExitGood;
}

}  // namespace ctl
