#pragma once
// An IPv4 address with a port, and its text forms.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <netinet/in.h>

namespace forwarder {

/// Address and port of one UDP peer, both in host byte order.
struct Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;

    bool operator==(const Endpoint&) const = default;
};

inline constexpr std::uint32_t kLoopbackAddress = 0x7F000001;

/// Reads a dotted IPv4 address; nothing for any other text.
[[nodiscard]] std::optional<std::uint32_t> parse_address(std::string_view text);

/// Reads a decimal number from `lowest` to `highest`; nothing for any other text.
[[nodiscard]] std::optional<unsigned> parse_number(std::string_view text, unsigned lowest, unsigned highest);

/// Reads "ADDRESS:PORT" with a port of 1 to 65535; nothing for any other text.
[[nodiscard]] std::optional<Endpoint> parse_endpoint(std::string_view text);

[[nodiscard]] std::string to_text(std::uint32_t address);
[[nodiscard]] std::string to_text(const Endpoint& endpoint);
[[nodiscard]] sockaddr_in to_sockaddr(const Endpoint& endpoint);

}  // namespace forwarder
