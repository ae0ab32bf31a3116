#include "ondra/net/interface_identity.h"

#include <cstddef>
#include <optional>
#include <span>

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QHostAddress>
#include <QNetworkInterface>

namespace ondra::net {

namespace {

/// Asks the kernel one question about an interface; none when it has no answer.
std::optional<ifreq> query(const std::string& interface, unsigned long request) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
    if (descriptor == -1) {
        return std::nullopt;
    }
    ifreq answer{};
    interface.copy(answer.ifr_name, IFNAMSIZ - 1);
    const bool answered = ioctl(descriptor, request, &answer) == 0;
    close(descriptor);
    return answered ? std::optional<ifreq>(answer) : std::nullopt;
}

std::string hex(std::span<const std::byte> bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const std::byte byte : bytes) {
        text += kDigits[std::to_integer<unsigned>(byte >> 4)];
        text += kDigits[std::to_integer<unsigned>(byte & std::byte{0x0F})];
    }
    return text;
}

}  // namespace

std::string ip_address_hex(const std::string& interface) {
    const std::optional<ifreq> answer = query(interface, SIOCGIFADDR);
    if (!answer) {
        return {};
    }
    // The octets as they lie in the record, which is network order.
    constexpr std::size_t kOffset = offsetof(sockaddr_in, sin_addr);
    return hex(std::as_bytes(std::span(&answer->ifr_addr, 1)).subspan(kOffset, sizeof(in_addr)));
}

std::string hardware_address_hex(const std::string& interface) {
    const std::optional<ifreq> answer = query(interface, SIOCGIFHWADDR);
    return answer ? hex(std::as_bytes(std::span(answer->ifr_hwaddr.sa_data)).first(6)) : std::string();
}

std::string last_broadcast_address(const QList<QNetworkAddressEntry>& entries) {
    std::string result;
    for (const QNetworkAddressEntry& entry : entries) {
        if (entry.ip().protocol() == QAbstractSocket::IPv4Protocol && !entry.broadcast().isNull()) {
            result = entry.broadcast().toString().toStdString();
        }
    }
    return result;
}

std::string broadcast_address(const std::string& interface) {
    const QNetworkInterface found = QNetworkInterface::interfaceFromName(QString::fromStdString(interface));
    return found.isValid() ? last_broadcast_address(found.addressEntries()) : std::string();
}

}  // namespace ondra::net
