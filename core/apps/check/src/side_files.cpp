#include "side_files.h"

#include <cstdint>

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QLatin1Char>
#include <QLatin1String>
#include <QString>

#include "cli/failure.h"
#include "cli/value_text.h"
#include "json_file.h"
#include "ondra/artnet_node_map.h"
#include "ondra/truncate_to_int.h"
#include "zones/zone_file.h"

namespace datacheck {

namespace {

QJsonArray require_array(const std::string& path) {
    auto result = read_json_array(path);
    if (const auto* const problem = std::get_if<JsonProblem>(&result)) {
        throw cli::Failure(problem_text(path, *problem));
    }
    return std::get<QJsonArray>(std::move(result));
}

[[noreturn]] void refuse(const std::string& path, int element, const std::string& expected) {
    throw cli::Failure(path + ": [" + std::to_string(element) + "]: expected " + expected);
}

std::set<int> node_universes(const ondra::ArtnetNodeMap& map) {
    std::set<int> universes;
    for (const auto& [universe, nodes] : map) {
        if (!nodes.empty()) {
            universes.insert(universe);
        }
    }
    return universes;
}

/// A number, or a range as text; false for anything else.
bool add_universes(const QJsonValue& value, std::set<int>& universes) {
    constexpr std::uint32_t kHighest = 32767;
    if (value.isDouble()) {
        const int universe = ondra::truncate_to_int(value.toDouble());
        universes.insert(universe);
        return universe >= 0 && universe <= static_cast<int>(kHighest);
    }
    if (!value.isString()) {
        return false;
    }
    try {
        for (const cli::NumberRange& range :
             cli::parse_ranges("", value.toString().toStdString(), kHighest)) {
            for (std::uint32_t universe = range.first; universe <= range.last; ++universe) {
                universes.insert(static_cast<int>(universe));
            }
        }
    } catch (const cli::UsageError&) {
        return false;
    }
    return true;
}

}  // namespace

std::set<int> read_zones(const std::string& path) {
    std::set<int> ids;
    for (const Zone& zone : zones::read_zone_file(path)) {
        ids.insert(zone.id);
    }
    return ids;
}

std::set<int> read_nodes(const std::string& path) {
    QFile file(QFile::decodeName(path.c_str()));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        throw cli::Failure(path + ": " + file.errorString().toStdString());
    }
    const QString text = QString::fromUtf8(file.readAll()).trimmed();
    if (text.startsWith(QLatin1Char('['))) {
        const QJsonArray array = require_array(path);
        std::set<int> universes;
        for (int index = 0; index < array.size(); ++index) {
            const QJsonValue list = array[index].toObject().value(QLatin1String("universes"));
            bool good = list.isArray();
            const QJsonArray listed = list.toArray();
            for (int place = 0; good && place < listed.size(); ++place) {
                good = add_universes(listed.at(place), universes);
            }
            if (!good) {
                refuse(path, index,
                       R"(a node: {"address": TEXT, "universes": [NUMBER or "FIRST-LAST", ...]})");
            }
        }
        return universes;
    }
    ondra::ArtnetNodeMap map;
    int line = 0;
    for (QString records : text.split(QLatin1Char('\n'))) {
        ++line;
        records = records.trimmed();
        // The service skips what is no record; in a file that a person has written, it is a mistake.
        for (const QString& record : records.split(QLatin1Char(';'))) {
            if (!record.isEmpty() && record.count(QLatin1Char(':')) != 3) {
                throw cli::Failure(path + ":" + std::to_string(line) +
                                   ": expected records \"1:universe:ip:port\" or a JSON array");
            }
        }
        ondra::update_artnet_node_map(records, map);
    }
    return node_universes(map);
}

}  // namespace datacheck
