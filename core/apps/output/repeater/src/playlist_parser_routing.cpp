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

/// What an observer hears of it.
const char* reason(OutputError error) {
    switch (error) {
        case OutputError::Universe:
            return "its universe must be \"*\" or 0 to 32767";
        case OutputError::Ip:
            return "its address must be an IPv4 address of 1.0.0.0 or above that is not loopback";
        case OutputError::Port:
            return "its port must be 1024 to 65535";
        case OutputError::Format:
            break;
    }
    return "it must read \"universe:ip:port\"";
}

}  // namespace

void PlaylistParser::parse_outputs(const QJsonArray& outputs, Playlist::Effect::DestAddrMap& map,
                                   int& count) const {
    map.clear();
    count = 0;
    ONDRA_LOG(ondra::kNormal, "[PlaylistParser::parse_outputs] Parse effect outputs");
    int index = -1;
    for (const QJsonValue& element : outputs) {
        ++index;
        if (!element.isString()) {
            tell(Outcome::Skipped, "outputs", index, "it is not a text");
            continue;
        }
        const QString text = element.toString();
        const auto result = parse_output_string(text);
        if (const auto* const error = std::get_if<OutputError>(&result)) {
            ONDRA_LOG(ondra::kError, "%s (%s)", rejection(*error), qPrintable(text));
            tell(Outcome::Skipped, "outputs", index, reason(*error));
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
    int index = -1;
    for (const QJsonValue& element : universes) {
        ++index;
        if (!element.isObject()) {
            tell(Outcome::Skipped, "universes", index, "it is not an object");
            continue;
        }
        const QJsonObject object = element.toObject();
        const QJsonValue id = object.value(QLatin1String("id"));
        if (!id.isDouble()) {
            ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_effects] Field 'id' absent");
            tell(Outcome::Skipped, "universes", index, "its \"id\" must be a number");
            continue;
        }
        const QJsonValue zone = object.value(QLatin1String("zone"));
        if (!zone.isDouble()) {
            ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_effects] Field 'zone' absent");
            tell(Outcome::Skipped, "universes", index, "its \"zone\" must be a number");
            continue;
        }
        const int universe = ondra::truncate_to_int(id.toDouble());
        const int zone_id = ondra::truncate_to_int(zone.toDouble());
        ONDRA_LOG(ondra::kDetail, "[PlaylistParser::parse_effects] Parsed universe (id:%d, zone:%d)",
                  universe, zone_id);
        map[universe] = zone_id;
    }
}
