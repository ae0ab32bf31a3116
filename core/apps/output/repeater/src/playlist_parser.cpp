#include "playlist_parser.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QLatin1String>

#include "exceptions.h"
#include "ondra/logger.h"
#include "ondra/truncate_to_int.h"

namespace {

/// Default of an effect's "ppf", and the "fps" of an effect that keeps its recording's own timing.
constexpr int kNotGiven = -1;
constexpr int kDefaultBrightness = 100;
constexpr int kDefaultSpeedBoost = 0;
constexpr int kDefaultSort = 0;

int to_int(const QJsonValue& value, int otherwise) {
    return value.isDouble() ? ondra::truncate_to_int(value.toDouble()) : otherwise;
}

int sort_key(const QJsonValue& effect) {
    return to_int(effect.toObject().value(QLatin1String("sort")), kDefaultSort);
}

/// False when the file cannot be opened.
bool read_file(const QString& path, QByteArray& content) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        return false;
    }
    content = file.readAll();
    return true;
}

bool holds_nothing(const QJsonDocument& document) {
    return !document.isArray() && !document.isObject();
}

/// The first object with the id; an empty one when there is none.
QJsonObject find_desc(const QJsonArray& playlists, int playlist_id) {
    for (const QJsonValue& element : playlists) {
        QJsonObject object = element.toObject();
        const QJsonValue id = object.value(QLatin1String("Id"));
        if (id.isDouble() && ondra::truncate_to_int(id.toDouble()) == playlist_id) {
            return object;
        }
    }
    return {};
}

[[noreturn]] void reject_effects_file() {
    throw Exceptions::InvalidFileFormat("Playlist effects file format invalid");
}

}  // namespace

void PlaylistParser::parse_desc(int playlist_id, const QString& playlist_desc_path,
                                Playlist& playlist) const {
    ONDRA_LOG(ondra::kNormal,
              "[PlaylistParser::parse_desc] Parse playlist desc file (playlist_id:%d, playlist_desc_path:%s)",
              playlist_id, qPrintable(playlist_desc_path));
    const QString path = playlist.get_root_dir() + QLatin1Char('/') + playlist_desc_path;
    QByteArray content;
    if (!read_file(path, content)) {
        ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_desc] File (path:%s) not found", qPrintable(path));
        tell(Outcome::Rejected, "", -1, "cannot be opened");
        throw Exceptions::InvalidPath("Playlist desc file not found");
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(content, &error);
    if (holds_nothing(document)) {
        ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_desc] Parse error (err:%s, offset:%d)",
                  qPrintable(error.errorString()), error.offset);
        tell(Outcome::Rejected, "", -1, "is not JSON");
        throw Exceptions::InvalidFileFormat("Playlist desc file format invalid");
    }
    if (!document.isArray()) {
        ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_desc] Playlists not found");
        tell(Outcome::Rejected, "", -1, "is not an array");
        throw Exceptions::InvalidFileFormat("Playlist desc file format invalid");
    }
    const QJsonArray playlists = document.array();
    ONDRA_LOG(ondra::kDetail, "[PlaylistParser::parse_desc] Found playlists (%d)", playlists.size());
    const QJsonObject desc = find_desc(playlists, playlist_id);
    if (desc.isEmpty()) {
        ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_desc] Playlist desc not found");
        tell(Outcome::Rejected, "", -1, "has no element with this \"Id\"");
        throw Exceptions::InvalidPath("Playlist desc not found");
    }
    tell_default(desc, "Loop", QJsonValue::Bool, "true");
    tell_default(desc, "Brightness", QJsonValue::Double, "100");
    tell_default(desc, "SpeedBoost", QJsonValue::Double, "0");
    const bool loop = desc.value(QLatin1String("Loop")).toBool(true);
    const int brightness = to_int(desc.value(QLatin1String("Brightness")), kDefaultBrightness);
    const int speed_boost = to_int(desc.value(QLatin1String("SpeedBoost")), kDefaultSpeedBoost);
    ONDRA_LOG(ondra::kDetail,
              "[PlaylistParser::parse_desc] Playlist desc parsed (playlist_id:%d, loop_mode:%d, "
              "brightness:%d, speed_boost:%d)",
              playlist_id, static_cast<int>(loop), brightness, speed_boost);
    playlist.id_ = playlist_id;
    playlist.loop_ = loop;
    playlist.set_brightness(brightness);
    playlist.set_speed_boost(speed_boost);
}

void PlaylistParser::parse_effects(Playlist& playlist) const {
    const QString path = playlist.get_root_dir() + QLatin1String("/playlists/") +
                         QString::number(playlist.id()) + QLatin1String(".json");
    ONDRA_LOG(ondra::kNormal, "[PlaylistParser::parse_effects] Parse playlist effects file (path:%s)",
              qPrintable(path));
    QByteArray content;
    if (!read_file(path, content)) {
        ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_effects] File (path:%s) not found",
                  qPrintable(path));
        tell(Outcome::Rejected, "", -1, "cannot be opened");
        throw Exceptions::InvalidPath("Playlist effects file not found");
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(content, &error);
    if (holds_nothing(document)) {
        ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_effects] Parse error (err:%s, offset:%d)",
                  qPrintable(error.errorString()), error.offset);
        tell(Outcome::Rejected, "", -1, "is not JSON");
        reject_effects_file();
    }
    if (!document.isArray()) {
        ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_effects] Effects not found");
        tell(Outcome::Rejected, "", -1, "is not an array");
        reject_effects_file();
    }
    const QJsonArray array = document.array();
    ONDRA_LOG(ondra::kDetail, "[PlaylistParser::parse_effects] Found effects (%d)", array.size());
    // Sorted as values of their own: the iterators of a QJsonArray yield proxies.
    std::vector<QJsonValue> effects(array.begin(), array.end());
    std::stable_sort(effects.begin(), effects.end(), sortLessThan);
    int position = 0;
    for (const QJsonValue& element : effects) {
        if (observer_ != nullptr) {
            observer_->begin_effect(position++);
        }
        if (element.isObject()) {
            playlist.add_effect(parse_effect(element.toObject()));
        } else {
            tell(Outcome::Skipped, "", -1, "it is not an object");
        }
    }
}

Playlist::Effect PlaylistParser::parse_effect(const QJsonObject& object) const {
    // The lines of this function, of parse_outputs() and of parse_universes() carry the tag of
    // parse_effects() on purpose: to a reader of the log it is one operation.
    const QJsonValue path = object.value(QLatin1String("path"));
    if (!path.isString()) {
        ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_effects] Field 'path' absent");
        tell(Outcome::Rejected, "path", -1, "must be a text");
        reject_effects_file();
    }
    const QJsonValue fps = object.value(QLatin1String("fps"));
    if (!fps.isDouble()) {
        ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_effects] Field 'fps' absent");
        tell(Outcome::Rejected, "fps", -1, "must be a number");
        reject_effects_file();
    }
    const QJsonValue outputs_value = object.value(QLatin1String("outputs"));
    if (!outputs_value.isArray()) {
        ONDRA_LOG(ondra::kError, "[PlaylistParser::parse_effects] Field 'outputs' absent");
        tell(Outcome::Rejected, "outputs", -1, "must be an array");
        reject_effects_file();
    }
    const QJsonValue sort = object.value(QLatin1String("sort"));
    if (sort.isDouble()) {
        ONDRA_LOG(ondra::kDetail, "[PlaylistParser::parse_effects] Sort ID (%d)", sort_key(object));
    }
    tell_default(object, "sort", QJsonValue::Double, "0");
    tell_default(object, "ppf", QJsonValue::Double,
                 ondra::truncate_to_int(fps.toDouble()) == kNotGiven ? "-1" : "-1, found from the recording");
    tell_default(object, "universes", QJsonValue::Array, "no universe has a zone");
    tell_default(object, "name", QJsonValue::String, "empty");
    Playlist::Effect effect;
    const QJsonArray outputs = outputs_value.toArray();
    const auto strings = std::count_if(outputs.begin(), outputs.end(),
                                       [](const QJsonValue& output) { return output.isString(); });
    ONDRA_LOG(ondra::kDetail, "[PlaylistParser::parse_effects] Found outputs (%d)",
              static_cast<int>(strings));
    int accepted = 0;
    parse_outputs(outputs, effect.outputs, accepted);
    const QJsonArray universes = object.value(QLatin1String("universes")).toArray();
    ONDRA_LOG(ondra::kDetail, "[PlaylistParser::parse_effects] Found universes (%d)", universes.size());
    parse_universes(universes, effect.universes);

    effect.path = path.toString();
    effect.fps = ondra::truncate_to_int(fps.toDouble());
    effect.ppf = to_int(object.value(QLatin1String("ppf")), kNotGiven);
    effect.fixed_fps = effect.fps != kNotGiven;
    effect.auto_ppf = effect.fixed_fps && effect.ppf == kNotGiven;
    ONDRA_LOG(
        ondra::kDetail,
        "[PlaylistParser::parse_effects] Added effect (path:%s, fps:%d, ppf:%d, outputs:%d, universes:%d)",
        qPrintable(effect.path), effect.fps, effect.ppf, accepted, static_cast<int>(effect.universes.size()));
    return effect;
}

void PlaylistParser::tell_default(const QJsonObject& object, const char* key, QJsonValue::Type type,
                                  const char* reason) const {
    if (observer_ == nullptr) {
        return;
    }
    const QJsonValue value = object.value(QLatin1String(key));
    if (value.type() != type) {
        tell(value.isUndefined() ? Outcome::Absent : Outcome::Defaulted, key, -1, reason);
    }
}

bool sortLessThan(const QJsonValue& a, const QJsonValue& b) {
    const int key_a = sort_key(a);
    const int key_b = sort_key(b);
    ONDRA_LOG(ondra::kDetail, "[PlaylistParser::sortLessThan] qSort %s, %d < %d",
              qPrintable(a.toObject().value(QLatin1String("name")).toString()), key_a, key_b);
    return key_a < key_b;
}
