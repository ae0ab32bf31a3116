#include "description_check.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numeric>
#include <utility>

#include <QFile>
#include <QLatin1String>
#include <QString>

#include "json_file.h"
#include "ondra/truncate_to_int.h"
#include "playlist_parser.h"

namespace datacheck {

namespace {

constexpr int kLowest = std::numeric_limits<int>::min();
constexpr int kHighest = std::numeric_limits<int>::max();

std::string element_text(int index) {
    return "[" + std::to_string(index) + "]";
}

std::string quoted(const char* key) {
    return std::string("\"") + key + "\"";
}

}  // namespace

std::vector<CheckedPlaylist> DescriptionCheck::run() {
    file_ = kDescriptionPath;
    QJsonArray array;
    if (!read_array(file_, "description-missing", "no playlist can be played", array)) {
        return {};
    }
    std::map<int, int> first_with_id;
    for (int index = 0; index < array.size(); ++index) {
        const std::string element = element_text(index);
        file_ = kDescriptionPath;
        if (!array[index].isObject()) {
            add("element-skipped", Level::Warning, element,
                "the element is not an object and is ignored; take it out");
            continue;
        }
        const QJsonObject object = array[index].toObject();
        check_object(object, element,
                     {{"Id", kLowest, kHighest, ""},
                      {"Brightness", 0, 100,
                       "is used as it is, and levels outside 0 to 255 wrap around; percent are 0 to 100"},
                      {"SpeedBoost", -100, 100,
                       "has no more effect than the nearest of -100 (half as fast) and 100 (twice as fast)"}},
                     {"Loop"});
        const QJsonValue value = object.value(QLatin1String("Id"));
        if (!value.isDouble()) {
            add("id-missing", Level::Error, element,
                "without a number as \"Id\" (with a capital I) the playlist can never be played; give it "
                "one");
            continue;
        }
        const int id = ondra::truncate_to_int(value.toDouble());
        const auto [place, is_first] = first_with_id.try_emplace(id, index);
        if (!is_first) {
            add("duplicate-id", Level::Error, element,
                "playlist " + std::to_string(id) + " is described by " + element_text(place->second) +
                    " already, and this element is never looked at; give it another \"Id\"");
            continue;
        }
        check_playlist(id, index);
    }
    if (first_with_id.empty()) {
        add("no-playlists", Level::Warning, "", "the file describes no playlist");
    }
    return std::move(playlists_);
}

void DescriptionCheck::check_playlist(int id, int index) {
    CheckedPlaylist& playlist = playlists_.emplace_back();
    playlist.id = id;
    playlist.element = element_text(index);
    playlist.effects_file = "playlists/" + std::to_string(id) + ".json";
    element_ = playlist.element;
    Playlist parsed;
    parsed.set_root_dir(QFile::decodeName(root_.c_str()));
    try {
        PlaylistParser(*this).parse_desc(id, QString::fromLatin1(kDescriptionPath), parsed);
    } catch (const std::exception&) {
        // The observer has heard why.
        return;
    }
    flush_defaults();
    playlist.loops = parsed.loop_mode();
    playlist.speed_boost = parsed.get_speed_boost();
    read_effects(playlist, parsed);
}

void DescriptionCheck::read_effects(CheckedPlaylist& playlist, Playlist& parsed) {
    file_ = playlist.effects_file;
    element_.clear();
    if (!read_array(file_, "effects-missing", "playlist " + std::to_string(playlist.id) + " cannot be played",
                    array_)) {
        return;
    }
    for (int index = 0; index < array_.size(); ++index) {
        const QJsonObject effect = array_[index].toObject();
        if (const QJsonValue path = effect.value(QLatin1String("path")); path.isString()) {
            playlist.recordings.push_back(QFile::encodeName(path.toString()).toStdString());
        }
        check_object(
            effect, element_text(index),
            {{"fps", kLowest, kHighest, ""}, {"ppf", kLowest, kHighest, ""}, {"sort", kLowest, kHighest, ""}},
            {"path", "outputs", "universes", "name"});
        const QJsonArray universes = effect.value(QLatin1String("universes")).toArray();
        for (int entry = 0; entry < universes.size(); ++entry) {
            check_object(universes[entry].toObject(),
                         element_text(index) + ".universes" + element_text(entry),
                         {{"id", 0, 65535, "is no universe that a packet can have"},
                          {"zone", -2, kHighest,
                           "is no zone: those have ids from 0 on, -1 means none and -2 mutes the universe"}},
                         {});
        }
        check_zones(universes, element_text(index) + ".universes");
    }
    // The parser tells of effects in playing order; the author looks for them in the file's.
    order_.resize(static_cast<std::size_t>(array_.size()));
    std::iota(order_.begin(), order_.end(), 0);
    std::stable_sort(order_.begin(), order_.end(),
                     [this](int a, int b) { return sortLessThan(array_.at(a), array_.at(b)); });
    accepted_.clear();
    try {
        PlaylistParser(*this).parse_effects(parsed);
        playlist.usable = true;
    } catch (const std::exception&) {
        // The observer has heard why.
    }
    flush_defaults();
    for (std::size_t effect = 0; effect < parsed.effects().size(); ++effect) {
        playlist.effects.push_back({element_text(accepted_[effect]), parsed.effects()[effect]});
    }
}

void DescriptionCheck::check_zones(const QJsonArray& universes, const std::string& element) {
    std::map<int, int> latest_of;
    for (int entry = 0; entry < universes.size(); ++entry) {
        const QJsonObject object = universes[entry].toObject();
        const QJsonValue id = object.value(QLatin1String("id"));
        const QJsonValue zone = object.value(QLatin1String("zone"));
        // Others are skipped, and replace nothing.
        if (!id.isDouble() || !zone.isDouble()) {
            continue;
        }
        const int universe = ondra::truncate_to_int(id.toDouble());
        const auto [place, is_first] = latest_of.try_emplace(universe, entry);
        if (!is_first) {
            add("zone-replaced", Level::Warning, element + element_text(entry),
                "universe " + std::to_string(universe) + " stands in " + element +
                    element_text(place->second) +
                    " already, and the zone here replaces the one there; leave one of them");
            place->second = entry;
        }
    }
}

void DescriptionCheck::begin_effect(int position) {
    flush_defaults();
    const int index = order_[static_cast<std::size_t>(position)];
    element_ = element_text(index);
    accepted_.push_back(index);
}

void DescriptionCheck::report(Outcome outcome, const char* key, int index, const char* reason) {
    const std::string name = key;
    switch (outcome) {
        case Outcome::Rejected:
            add("file-rejected", Level::Error, name.empty() ? element_ : element_ + "." + name,
                (name.empty() ? "the file " : quoted(key) + " ") + reason +
                    ": the whole file is rejected, and the playlist cannot be played; mend it");
            break;
        case Outcome::Skipped:
            if (name.empty()) {
                accepted_.pop_back();
                add("element-skipped", Level::Warning, element_,
                    std::string("the element is skipped: ") + reason + "; take it out");
            } else if (name == "outputs") {
                const QJsonValue output = array_.at(accepted_.back())
                                              .toObject()
                                              .value(QLatin1String("outputs"))
                                              .toArray()
                                              .at(index);
                add("output-skipped", Level::Error, element_ + ".outputs" + element_text(index),
                    "the output \"" + output.toString().toStdString() + "\" is skipped: " + reason);
            } else {
                add("zone-skipped", Level::Error, element_ + "." + name + element_text(index),
                    std::string("the universe's zone is skipped: ") + reason);
            }
            break;
        case Outcome::Absent:
            defaults_ += (defaults_.empty() ? "" : "; ") + quoted(key) + ": " + reason;
            break;
        case Outcome::Defaulted:
            add("default-used", Level::Warning, element_ + "." + name,
                quoted(key) + " has a value of the wrong type, and its default holds (" + reason +
                    "); mend or remove it");
            break;
    }
}

void DescriptionCheck::flush_defaults() {
    if (!defaults_.empty()) {
        add("defaults", Level::Note, element_, "not given, so that the defaults hold: " + defaults_);
    }
    defaults_.clear();
}

bool DescriptionCheck::read_array(const std::string& file, const char* missing_kind,
                                  const std::string& consequence, QJsonArray& array) {
    auto result = read_json_array(root_ + "/" + file);
    if (const auto* const problem = std::get_if<JsonProblem>(&result)) {
        DataFinding finding{
            .level = Level::Error, .file = file, .line = problem->line, .column = problem->column};
        switch (problem->kind) {
            case JsonProblem::Kind::Unreadable:
                finding.kind = missing_kind;
                finding.text = "cannot be read (" + problem->reason + "): " + consequence;
                break;
            case JsonProblem::Kind::Broken:
                finding.kind = "json-broken";
                finding.text = "is not JSON (" + problem->reason + "): " + consequence + "; mend it here";
                break;
            case JsonProblem::Kind::NoArray:
                finding.kind = "json-no-array";
                finding.text = problem->reason + ": " + consequence + "; put brackets around it";
                break;
        }
        findings_.add(std::move(finding));
        return false;
    }
    array = std::get<QJsonArray>(std::move(result));
    return true;
}

void DescriptionCheck::check_object(const QJsonObject& object, const std::string& element,
                                    std::initializer_list<NumberKey> numbers,
                                    std::initializer_list<const char*> other_keys) {
    std::vector<const char*> keys(other_keys);
    for (const auto& [key, lowest, highest, meaning] : numbers) {
        keys.push_back(key);
        const QJsonValue value = object.value(QLatin1String(key));
        if (!value.isDouble()) {
            continue;
        }
        const int used = ondra::truncate_to_int(value.toDouble());
        if (value.toDouble() != used) {
            add("number-cut", Level::Warning, element + "." + key,
                QString::number(value.toDouble(), 'g', 12).toStdString() + " is used as " +
                    std::to_string(used) + "; write a whole number");
        }
        if (used < lowest || used > highest) {
            add("out-of-range", Level::Warning, element + "." + key, std::to_string(used) + " " + meaning);
        }
    }
    for (auto entry = object.constBegin(); entry != object.constEnd(); ++entry) {
        for (const char* const key : keys) {
            const QLatin1String wanted(key);
            if (entry.key() != wanted && entry.key().compare(wanted, Qt::CaseInsensitive) == 0) {
                add("key-case", Level::Warning, element + "." + entry.key().toStdString(),
                    "the service does not know this key; write it " + quoted(key));
            }
        }
    }
}

void DescriptionCheck::add(const char* kind, Level level, const std::string& element,
                           const std::string& text) {
    findings_.add({.kind = kind, .level = level, .file = file_, .element = element, .text = text});
}

}  // namespace datacheck
