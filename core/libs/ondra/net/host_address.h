#pragma once
// An IPv4 address as text, with its binary form kept ready.

#include <optional>
#include <string>

#include <netinet/in.h>

namespace ondra::net {

/**
 * Value type: one IPv4 address in dotted decimal form; "0.0.0.0" means any local address.
 *
 * The text is converted once, here, so that sending to an address parses nothing.
 */
class HostAddress final {
public:
    HostAddress() : HostAddress("0.0.0.0") {}
    explicit HostAddress(std::string text);

    [[nodiscard]] const std::string& text() const noexcept { return text_; }

    /// Network byte order; none when the text is not a valid dotted IPv4 address (inet_pton, POSIX).
    [[nodiscard]] const std::optional<in_addr>& ipv4() const noexcept { return ipv4_; }

private:
    std::string text_;
    std::optional<in_addr> ipv4_;
};

}  // namespace ondra::net
