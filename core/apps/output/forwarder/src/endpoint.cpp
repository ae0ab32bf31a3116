#include "endpoint.h"

#include <charconv>
#include <system_error>

#include <arpa/inet.h>

#include "text.h"

namespace forwarder {

std::optional<std::uint32_t> parse_address(std::string_view text) {
    in_addr address{};
    if (inet_pton(AF_INET, std::string(text).c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

std::optional<unsigned> parse_number(std::string_view text, unsigned lowest, unsigned highest) {
    unsigned number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end || number < lowest || number > highest) {
        return std::nullopt;
    }
    return number;
}

std::optional<Endpoint> parse_endpoint(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    const auto address = parse_address(text.substr(0, colon));
    const auto port = parse_number(text.substr(colon + 1), 1, 65535);
    if (!address || !port) {
        return std::nullopt;
    }
    return Endpoint{*address, static_cast<std::uint16_t>(*port)};
}

std::string to_text(std::uint32_t address) {
    return text("%u.%u.%u.%u", address >> 24, address >> 16 & 0xFF, address >> 8 & 0xFF, address & 0xFF);
}

std::string to_text(const Endpoint& endpoint) {
    return to_text(endpoint.address) + text(":%u", unsigned{endpoint.port});
}

sockaddr_in to_sockaddr(const Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(endpoint.address);
    address.sin_port = htons(endpoint.port);
    return address;
}

}  // namespace forwarder
