#include "node_list.h"

#include <algorithm>
#include <array>
#include <vector>

#include <QJsonObject>
#include <QString>

#include "artnet/universe_ranges.h"
#include "posix/ipv4.h"

namespace netsurvey {

namespace {

QString source_text(Source source) {
    switch (source) {
        case Source::Static:
            return QStringLiteral("static");
        case Source::Remembered:
            return QStringLiteral("remembered");
        case Source::Reply:
            break;
    }
    return QStringLiteral("reply");
}

std::vector<std::uint16_t> universes_of(const QJsonObject& node) {
    std::vector<std::uint16_t> universes;
    const QJsonArray values = node.value(QLatin1String("universes")).toArray();
    for (const QJsonValue value : values) {
        universes.push_back(static_cast<std::uint16_t>(value.toInt()));
    }
    return universes;
}

QString heard_text(const QJsonObject& node) {
    QString source = node.value(QLatin1String("source")).toString();
    if (source != QLatin1String("reply")) {
        return source;
    }
    const double seconds = node.value(QLatin1String("silent_ms")).toDouble() / 1000.0;
    return QString::number(seconds, 'f', 1) + QStringLiteral(" s ago");
}

constexpr std::size_t kColumns = 6;
using Row = std::array<QString, kColumns>;

Row row_of(const QJsonObject& node) {
    const int bind_index = node.value(QLatin1String("bind_index")).toInt();
    const std::vector<std::uint16_t> universes = universes_of(node);
    return {node.value(QLatin1String("address")).toString(),
            QString::number(node.value(QLatin1String("port")).toInt()),
            bind_index == 0 ? QStringLiteral("-") : QString::number(bind_index),
            node.value(QLatin1String("name")).toString(),
            universes.empty() ? QStringLiteral("-")
                              : QString::fromStdString(artnet::universe_ranges_text(universes)),
            heard_text(node)};
}

}  // namespace

QJsonArray to_json(std::span<const NodeView> nodes) {
    QJsonArray array;
    for (const NodeView& node : nodes) {
        QJsonArray universes;
        for (const std::uint16_t universe : node.universes) {
            universes.append(universe);
        }
        QJsonObject object{
            {QStringLiteral("address"), QString::fromStdString(posix::ipv4_text(node.address))},
            {QStringLiteral("port"), node.port},
            {QStringLiteral("bind_index"), static_cast<int>(node.bind_index)},
            {QStringLiteral("name"), QString::fromStdString(node.short_name)},
            {QStringLiteral("long_name"), QString::fromStdString(node.long_name)},
            {QStringLiteral("universes"), universes},
            {QStringLiteral("source"), source_text(node.source)}};
        if (node.source != Source::Static) {
            object.insert(QStringLiteral("silent_ms"), static_cast<double>(node.silent.count()));
        }
        array.append(object);
    }
    return array;
}

std::string to_table(const QJsonArray& nodes) {
    if (nodes.isEmpty()) {
        return "no node\n";
    }
    std::vector<Row> rows{{QStringLiteral("ADDRESS"), QStringLiteral("PORT"), QStringLiteral("BIND"),
                           QStringLiteral("NAME"), QStringLiteral("UNIVERSES"), QStringLiteral("HEARD")}};
    for (const QJsonValue node : nodes) {
        rows.push_back(row_of(node.toObject()));
    }
    std::array<int, kColumns> widths{};
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < kColumns; ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    QString table;
    for (const Row& row : rows) {
        QString line;
        for (std::size_t column = 0; column < kColumns; ++column) {
            const bool number = column == 1 || column == 2;
            line += number ? row[column].rightJustified(widths[column])
                           : row[column].leftJustified(widths[column]);
            line += QStringLiteral("  ");
        }
        table += line.trimmed() + QLatin1Char('\n');
    }
    return table.toStdString();
}

}  // namespace netsurvey
