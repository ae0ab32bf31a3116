#include "capture/endpoint.h"

#include <charconv>
#include <stdexcept>
#include <system_error>

#include <arpa/inet.h>

namespace capture {

std::optional<std::uint32_t> parse_address(std::string_view text) {
    in_addr address{};
    // A NUL within the text would end it early for the C function.
    if (text.find('\0') != std::string_view::npos ||
        inet_pton(AF_INET, std::string(text).c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

std::string address_text(std::uint32_t address) {
    return std::to_string(address >> 24) + '.' + std::to_string(address >> 16 & 0xFF) + '.' +
           std::to_string(address >> 8 & 0xFF) + '.' + std::to_string(address & 0xFF);
}

std::string endpoint_text(const Endpoint& endpoint) {
    return address_text(endpoint.address) + ':' + std::to_string(endpoint.port);
}

sockaddr_in to_sockaddr(const Endpoint& endpoint) noexcept {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(endpoint.address);
    address.sin_port = htons(endpoint.port);
    return address;
}

Endpoint from_sockaddr(const sockaddr_in& address) noexcept {
    return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

EndpointFilter::EndpointFilter(std::string_view text) {
    const std::size_t colon = text.find(':');
    address_ = parse_address(text.substr(0, colon));
    bool good = address_.has_value();
    if (colon != std::string_view::npos) {
        const std::string_view digits = text.substr(colon + 1);
        std::uint16_t port = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
        good = good && error == std::errc() && end == digits.data() + digits.size() && port != 0;
        port_ = port;
    }
    if (!good) {
        throw std::invalid_argument(
            "expected ADDRESS or ADDRESS:PORT, for example 10.0.0.5 or 10.0.0.5:6454, not \"" +
            std::string(text) + "\"");
    }
}

bool EndpointFilter::passes(const Endpoint& endpoint) const noexcept {
    return (!address_ || *address_ == endpoint.address) && (!port_ || *port_ == endpoint.port);
}

}  // namespace capture
