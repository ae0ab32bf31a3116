#include "ondra/brand.h"

#include <limits>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QStringList>

#include "ondra/truncate_to_int.h"

namespace ondra::device {

namespace {

std::string join(const QJsonArray& array) {
    QStringList elements;
    for (const QJsonValue element : array) {
        elements.append(element.toString());
    }
    return elements.join(QLatin1Char('|')).toStdString();
}

}  // namespace

std::string parse_brand_field(const QString& key, const QJsonObject& object) {
    const QJsonValue value = object.value(key);
    if (value.isString()) {
        return value.toString().toStdString();
    }
    if (value.isDouble()) {
        return std::to_string(truncate_to_int(value.toDouble()));
    }
    if (value.isArray()) {
        return join(value.toArray());
    }
    return {};
}

std::uint16_t parse_brand_code(const std::string& text) {
    constexpr auto kHighest = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t code = 0;
    for (const char character : text) {
        if (character < '0' || character > '9') {
            break;
        }
        const auto digit = static_cast<std::uint64_t>(character - '0');
        code = code > (kHighest - digit) / 10 ? kHighest : code * 10 + digit;
    }
    return static_cast<std::uint16_t>(code & 0xFFFF);
}

Brand read_brand_file(const QString& path) {
    Brand brand;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        return brand;
    }
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    if (!document.isObject()) {
        return brand;
    }
    const QJsonObject object = document.object();
    const auto field = [&object](const char* key) { return parse_brand_field(QLatin1String(key), object); };
    brand.short_name = field("short_name");
    brand.long_name = field("long_name");
    brand.manufacturer = field("manufacturer");
    brand.model = field("model");
    brand.oem_id = parse_brand_code(field("oem_id"));
    brand.manufacturer_id = parse_brand_code(field("manufacturer_id"));
    brand.modules = field("modules");
    return brand;
}

}  // namespace ondra::device
