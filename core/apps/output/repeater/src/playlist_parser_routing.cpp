// PlaylistParser: where an effect's universes go, and the zones they belong to.

#include "playlist_parser.h"

#include <variant>

#include <QLatin1String>

#include "ondra/logger.h"
#include "ondra/truncate_to_int.h"
#include "output_string.h"

namespace {

/// What the log says of a rejected output, before the output itself.
const char* rejection(OutputError error) {
    switch (error) {
        case OutputError::Universe:
            return "[PlaylistParser::parse_effects] Invalid universe specified in output";
        case OutputError::Ip:
            return "[PlaylistParser::parse_effects] Invalid ip specified in output";
        case OutputError::Port:
            return "[PlaylistParser::parse_effects] Invalid port specified in output";
        case OutputError::Format:
            break;
    }
    return "[PlaylistParser::parse_effects] Output string must be of format \"universe:ip:port\"";
}

}  // namespace

void PlaylistParser::parse_outputs(const QJsonArray& outputs, Playlist::Effect::DestAddrMap& map,
                                   int& count) const {
    map.clear();
    count = 0;
    ONDRA_LOG(ondra::kNormal, "[PlaylistParser::parse_outputs] Parse effect outputs");
    for (const QJsonValue& element : outputs) {
        if (!element.isString()) {
            continue;
        }
        const QString text = element.toString();
        const auto result = parse_output_string(text);
        if (const auto* const error = std::get_if<OutputError>(&result)) {
            ONDRA_LOG(ondra::kError, "%s (%s)", rejection(*error), qPrintable(text));
            continue;
        }
        const auto& output = std::get<ParsedOutput>(result);
        ONDRA_LOG(ondra::kDetail,
                  "[PlaylistParser::parse_effects] Parsed output (universe:%d, address:(%s:%d))",
                  output.universe, output.address.ip.c_str(), output.address.port);
        map[output.universe].push_back(output.address);
        ++count;
    }
}

void PlaylistParser::parse_universes(const QJsonArray& universes, Playlist::Effect::UniZoneMap& map) const {
    map.clear();
    ONDRA_LOG(ondra::kNormal, "[PlaylistParser::parse_universes] Parse effect universes");
    for (const QJsonValue& element : universes) {
        if (!element.isObject()) {
            continue;
        }
        const QJsonObject object = element.toObject();
        const QJsonValue id = object.value(QLatin1String("id"));
        if (!id.isDouble()) {
            ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_effects] Field 'id' absent");
            continue;
        }
        const QJsonValue zone = object.value(QLatin1String("zone"));
        if (!zone.isDouble()) {
            ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_effects] Field 'zone' absent");
            continue;
        }
        const int universe = ondra::truncate_to_int(id.toDouble());
        const int zone_id = ondra::truncate_to_int(zone.toDouble());
        ONDRA_LOG(ondra::kDetail, "[PlaylistParser::parse_effects] Parsed universe (id:%d, zone:%d)",
                  universe, zone_id);
        map[universe] = zone_id;
    }
}
