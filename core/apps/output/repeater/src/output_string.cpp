#include "output_string.h"

#include <QHostAddress>
#include <QLatin1String>
#include <QStringList>

namespace {

constexpr int kHighestUniverse = 32767;
/// Ports below belong to the system.
constexpr int kLowestPort = 1024;
constexpr int kHighestPort = 65535;
/// 1.0.0.0: what is below means "this network".
constexpr quint32 kLowestAddress = 0x01000000;

bool is_destination(const QHostAddress& address) {
    return address.protocol() == QAbstractSocket::IPv4Protocol && !address.isLoopback() &&
           address.toIPv4Address() >= kLowestAddress;
}

}  // namespace

std::variant<ParsedOutput, OutputError> parse_output_string(const QString& text) {
    const QStringList parts = text.split(QLatin1Char(':'), Qt::KeepEmptyParts);
    if (parts.size() != 3) {
        return OutputError::Format;
    }
    int universe = Playlist::kAllUniverses;
    if (parts[0] != QLatin1String("*")) {
        bool ok = false;
        universe = parts[0].toInt(&ok);
        if (!ok || universe < 0 || universe > kHighestUniverse) {
            return OutputError::Universe;
        }
    }
    const QHostAddress address(parts[1]);
    if (!is_destination(address)) {
        return OutputError::Ip;
    }
    bool ok = false;
    const int port = parts[2].toInt(&ok);
    if (!ok || port < kLowestPort || port > kHighestPort) {
        return OutputError::Port;
    }
    return ParsedOutput{universe, Playlist::Address(address.toString().toStdString(), port)};
}
