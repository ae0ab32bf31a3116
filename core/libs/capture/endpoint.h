#pragma once
// Who sent a datagram, or where it is to go: an IPv4 address with a port.

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <netinet/in.h>

namespace capture {

/// Both in host byte order.
struct Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;

    auto operator<=>(const Endpoint&) const = default;
};

/// "10.0.0.1:6454"
[[nodiscard]] std::string endpoint_text(const Endpoint& endpoint);
[[nodiscard]] sockaddr_in to_sockaddr(const Endpoint& endpoint) noexcept;
[[nodiscard]] Endpoint from_sockaddr(const sockaddr_in& address) noexcept;

/// One sender, or all that send from one address. Made from "10.0.0.1" or "10.0.0.1:6454".
class EndpointFilter {
public:
    /// Lets everybody through.
    EndpointFilter() = default;
    /// Throws std::invalid_argument when the text is neither an address nor one with a port.
    explicit EndpointFilter(std::string_view text);

    [[nodiscard]] bool passes(const Endpoint& endpoint) const noexcept;

private:
    std::optional<std::uint32_t> address_;
    std::optional<std::uint16_t> port_;
};

}  // namespace capture
