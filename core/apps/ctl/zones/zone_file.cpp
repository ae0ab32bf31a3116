#include "zones/zone_file.h"

#include <cmath>
#include <limits>
#include <map>
#include <optional>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include "cli/failure.h"

namespace zones {

namespace {

constexpr int kLastChannel = 511;
constexpr const char* kExpectedZone =
    R"(expected an object such as {"id": 1, "priority": 5, "channels": [0, 1, 2]})";

/// Where errors are: the file, and the element that is being read.
class Place {
public:
    Place(std::string file, std::vector<int> lines) : file_(std::move(file)), lines_(std::move(lines)) {}

    void enter(std::size_t element) { element_ = element; }
    [[noreturn]] void fail(const std::string& reason) const {
        throw cli::Failure(file_ + ":" + std::to_string(lines_.at(element_)) + ": element " +
                           std::to_string(element_ + 1) + ": " + reason);
    }

private:
    std::string file_;
    /// Line of each element of the array.
    std::vector<int> lines_;
    std::size_t element_ = 0;
};

/// The line on which each element of the outermost array begins. `text` is valid JSON.
std::vector<int> element_lines(const QByteArray& text) {
    std::vector<int> lines;
    int line = 1;
    int depth = 0;
    bool in_string = false;
    bool expecting = false;
    for (int at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '\n') {
            ++line;
        }
        if (in_string) {
            if (c == '\\') {
                ++at;
            }
            in_string = c != '"';
            continue;
        }
        const bool blank = c == ' ' || c == '\t' || c == '\r' || c == '\n';
        if (expecting && depth == 1 && !blank && c != ']') {
            lines.push_back(line);
            expecting = false;
        }
        in_string = c == '"';
        if (c == '[' || c == '{') {
            ++depth;
            expecting = depth == 1;
        } else if (c == ']' || c == '}') {
            --depth;
        } else if (c == ',' && depth == 1) {
            expecting = true;
        }
    }
    return lines;
}

int line_of(const QByteArray& text, int offset) {
    return 1 + text.left(offset).count('\n');
}

/// Whole numbers of 32 bits; all others are none.
std::optional<int> whole_number(const QJsonValue& value) {
    const double number = value.toDouble(std::numeric_limits<double>::quiet_NaN());
    if (!(number >= std::numeric_limits<int>::min() && number <= std::numeric_limits<int>::max()) ||
        std::trunc(number) < number || std::trunc(number) > number) {
        return std::nullopt;
    }
    return static_cast<int>(number);
}

int read_number(const QJsonObject& object, const char* key, int lowest, const Place& place) {
    const std::optional<int> number = whole_number(object.value(QLatin1String(key)));
    if (!number || *number < lowest) {
        place.fail("\"" + std::string(key) + "\" is " +
                   (object.contains(QLatin1String(key)) ? "of another kind" : "missing") +
                   "; expected a whole number" + (lowest == 0 ? " from 0" : "") + ", 32 bits");
    }
    return *number;
}

std::vector<int> read_channels(const QJsonObject& object, const Place& place) {
    const QJsonValue value = object.value(QLatin1String("channels"));
    if (!value.isArray()) {
        place.fail("\"channels\" is " +
                   std::string(object.contains(QLatin1String("channels")) ? "of another kind" : "missing") +
                   "; expected an array of channels, 0 to 511");
    }
    const QJsonArray array = value.toArray();
    std::vector<int> channels;
    for (int i = 0; i < array.size(); ++i) {
        const std::optional<int> channel = whole_number(array[i]);
        if (!channel || *channel < 0 || *channel > kLastChannel) {
            place.fail("\"channels\", number " + std::to_string(i + 1) +
                       ": expected a whole number from 0 to 511");
        }
        channels.push_back(*channel);
    }
    return channels;
}

Zone read_zone(const QJsonValue& value, const Place& place) {
    if (!value.isObject()) {
        place.fail(kExpectedZone);
    }
    const QJsonObject object = value.toObject();
    const QStringList keys = object.keys();
    for (const QString& key : keys) {
        if (key != QLatin1String("id") && key != QLatin1String("priority") &&
            key != QLatin1String("channels")) {
            place.fail("unknown key \"" + key.toStdString() + "\"; " + kExpectedZone);
        }
    }
    Zone zone;
    zone.id = read_number(object, "id", 0, place);
    zone.priority = read_number(object, "priority", std::numeric_limits<int>::min(), place);
    zone.channels = read_channels(object, place);
    return zone;
}

}  // namespace

std::vector<Zone> parse_zones(const QByteArray& text, const std::string& name) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError) {
        throw cli::Failure(name + ":" + std::to_string(line_of(text, error.offset)) + ": byte " +
                           std::to_string(error.offset) + ": " + error.errorString().toStdString() +
                           "; expected a JSON array of zones");
    }
    if (!document.isArray()) {
        throw cli::Failure(name +
                           ":1: expected an array of zones, as in [{\"id\": 1, \"priority\": 5, "
                           "\"channels\": [0, 1, 2]}]");
    }
    const QJsonArray array = document.array();
    Place place(name, element_lines(text));
    std::vector<Zone> zones;
    std::map<int, int> element_of;
    for (int i = 0; i < array.size(); ++i) {
        place.enter(static_cast<std::size_t>(i));
        Zone zone = read_zone(array[i], place);
        const auto [earlier, is_new] = element_of.emplace(zone.id, i + 1);
        if (!is_new) {
            place.fail("the id " + std::to_string(zone.id) + " is that of element " +
                       std::to_string(earlier->second) + ", too; expected each id once");
        }
        zones.push_back(std::move(zone));
    }
    return zones;
}

std::vector<Zone> read_zone_file(const std::string& path) {
    QFile file;
    bool opened = false;
    std::string name = path;
    if (path == "-") {
        name = "standard input";
        opened = file.open(stdin, QIODevice::ReadOnly);
    } else {
        file.setFileName(QString::fromLocal8Bit(path.c_str()));
        opened = file.open(QIODevice::ReadOnly);
    }
    if (!opened) {
        throw cli::Failure(name + ": " + file.errorString().toStdString() + "; expected a file of zones");
    }
    const QByteArray text = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        throw cli::Failure(name + ": " + file.errorString().toStdString());
    }
    return parse_zones(text, name);
}

}  // namespace zones
