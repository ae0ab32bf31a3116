#include "static_nodes.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "artnet/universe_ranges.h"
#include "cli/failure.h"
#include "cli/value_text.h"
#include "posix/ipv4.h"

namespace netsurvey {

namespace {

/// More than that is no list of devices but something else.
constexpr qint64 kMaxFileSize = qint64{16} * 1024 * 1024;
constexpr int kMaxNodes = 4096;

/// One element of the file, read key by key.
class Element {
public:
    Element(std::string place, const QJsonValue& value) : place_(std::move(place)) {
        if (!value.isObject()) {
            fail("expected an object");
        }
        object_ = value.toObject();
        for (const QString& key : object_.keys()) {
            if (!QStringList{QStringLiteral("address"), QStringLiteral("port"), QStringLiteral("name"),
                             QStringLiteral("universes")}
                     .contains(key)) {
                fail("unknown key \"" + key.toStdString() +
                     R"("; expected "address", "universes", "port" or "name")");
            }
        }
    }

    [[nodiscard]] StaticNode node() const {
        StaticNode node;
        node.address = address();
        node.port = port();
        node.name = name();
        node.universes = universes();
        return node;
    }

private:
    [[noreturn]] void fail(const std::string& reason) const { throw cli::Failure(place_ + ": " + reason); }

    [[nodiscard]] QJsonValue at(const char* key) const { return object_.value(QLatin1String(key)); }

    [[nodiscard]] std::uint32_t address() const {
        const std::optional<std::uint32_t> address =
            posix::parse_ipv4(at("address").toString().toStdString());
        if (!address || *address >> 24 == 0) {
            fail(R"("address": expected an IPv4 address such as "10.0.0.5")");
        }
        return *address;
    }

    [[nodiscard]] std::uint16_t port() const {
        const QJsonValue value = at("port");
        const double port = value.isUndefined() ? artnet::kPort : value.toDouble();
        if (std::trunc(port) != port || port < 1 || port > 65535) {
            fail("\"port\": expected a number from 1 to 65535");
        }
        return static_cast<std::uint16_t>(port);
    }

    [[nodiscard]] std::string name() const {
        const QJsonValue value = at("name");
        if (!value.isUndefined() && !value.isString()) {
            fail("\"name\": expected a text");
        }
        return value.toString().toStdString();
    }

    [[nodiscard]] std::vector<std::uint16_t> universes() const {
        std::vector<bool> named(artnet::kLastUniverse + 1);
        const QJsonArray values = at("universes").toArray();
        for (const QJsonValue value : values) {
            for (const cli::NumberRange& range : ranges(value)) {
                std::fill_n(named.begin() + static_cast<std::ptrdiff_t>(range.first),
                            range.last - range.first + 1, true);
            }
        }
        std::vector<std::uint16_t> universes;
        for (std::size_t universe = 0; universe < named.size(); ++universe) {
            if (named[universe]) {
                universes.push_back(static_cast<std::uint16_t>(universe));
            }
        }
        if (universes.empty()) {
            fail(R"("universes": expected an array with a number or a range such as "0-3")");
        }
        return universes;
    }

    [[nodiscard]] std::vector<cli::NumberRange> ranges(const QJsonValue& value) const {
        const std::string text = value.isDouble() ? QString::number(value.toDouble()).toStdString()
                                                  : value.toString().toStdString();
        try {
            return cli::parse_ranges("", text, artnet::kLastUniverse);
        } catch (const cli::UsageError&) {
            fail(R"("universes": ")" + text + "\" is neither a universe from 0 to 32767 nor a range");
        }
    }

    std::string place_;
    QJsonObject object_;
};

}  // namespace

std::vector<StaticNode> read_static_nodes(const std::string& path) {
    QFile file(QString::fromLocal8Bit(path.c_str()));
    if (!file.open(QIODevice::ReadOnly)) {
        throw cli::Failure(path + ": " + file.errorString().toStdString());
    }
    const QByteArray content = file.read(kMaxFileSize + 1);
    if (file.error() != QFileDevice::NoError) {
        throw cli::Failure(path + ": " + file.errorString().toStdString());
    }
    if (content.size() > kMaxFileSize) {
        throw cli::Failure(path + ": longer than a list of nodes can be");
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(content, &error);
    if (error.error != QJsonParseError::NoError) {
        throw cli::Failure(path + ": byte " + std::to_string(error.offset) + ": " +
                           error.errorString().toStdString());
    }
    if (!document.isArray() || document.array().size() > kMaxNodes) {
        throw cli::Failure(path + ": expected an array of at most " + std::to_string(kMaxNodes) + " nodes");
    }
    std::vector<StaticNode> nodes;
    const QJsonArray elements = document.array();
    nodes.reserve(static_cast<std::size_t>(elements.size()));
    for (int i = 0; i < elements.size(); ++i) {
        nodes.push_back(Element(path + ": element " + std::to_string(i), elements[i]).node());
    }
    return nodes;
}

}  // namespace netsurvey
