#pragma once
// IPv4 addresses as numbers and as text.

#include <cstdint>
#include <optional>
#include <string>

#include <netinet/in.h>

namespace posix {

/// Reads a dotted address, host byte order; nothing for any other text.
[[nodiscard]] std::optional<std::uint32_t> parse_ipv4(const std::string& text);

/// @param address  host byte order
[[nodiscard]] std::string ipv4_text(std::uint32_t address);

/// @param address  host byte order
[[nodiscard]] sockaddr_in ipv4_sockaddr(std::uint32_t address, std::uint16_t port);

}  // namespace posix
