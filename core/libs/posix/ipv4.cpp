#include "posix/ipv4.h"

#include <array>

#include <arpa/inet.h>

namespace posix {

std::optional<std::uint32_t> parse_ipv4(const std::string& text) {
    in_addr address{};
    // A NUL within would hide what follows it.
    if (text.find('\0') != std::string::npos || inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

std::string ipv4_text(std::uint32_t address) {
    const in_addr wire{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &wire, text.data(), text.size());
    return text.data();
}

sockaddr_in ipv4_sockaddr(std::uint32_t address, std::uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr.s_addr = htonl(address);
    return result;
}

}  // namespace posix
