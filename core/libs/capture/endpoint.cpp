#include "capture/endpoint.h"

#include <charconv>
#include <stdexcept>
#include <system_error>

#include "posix/ipv4.h"

namespace capture {

std::string endpoint_text(const Endpoint& endpoint) {
    return posix::ipv4_text(endpoint.address) + ':' + std::to_string(endpoint.port);
}

sockaddr_in to_sockaddr(const Endpoint& endpoint) noexcept {
    return posix::ipv4_sockaddr(endpoint.address, endpoint.port);
}

Endpoint from_sockaddr(const sockaddr_in& address) noexcept {
    return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

EndpointFilter::EndpointFilter(std::string_view text) {
    const std::size_t colon = text.find(':');
    address_ = posix::parse_ipv4(std::string(text.substr(0, colon)));
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
