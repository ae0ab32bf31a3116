#include "rewrite.h"

#include <algorithm>

#include "endpoint.h"

namespace forwarder {

namespace {

constexpr unsigned kAddressBits = 32;

/// Network mask of a prefix length of 0 to 32.
std::uint32_t mask_of(unsigned length) {
    return length == 0 ? 0 : ~std::uint32_t{0} << (kAddressBits - length);
}

}  // namespace

std::string parse_rewrite(std::string_view text, Rewrite& rule) {
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) {
        return "expected FROM-NET=TO-ADDRESS, for example 192.0.2.0/24=127.0.0.2";
    }
    const std::string_view from = text.substr(0, equals);
    const std::string_view to = text.substr(equals + 1);
    const std::size_t slash = from.find('/');
    const auto network = parse_address(from.substr(0, slash));
    if (!network) {
        return "\"" + std::string(from) + "\" does not begin with an IPv4 address";
    }
    unsigned length = kAddressBits;
    if (slash != std::string_view::npos) {
        const auto given = parse_number(from.substr(slash + 1), 0, kAddressBits);
        if (!given) {
            return "\"" + std::string(from) + "\" has no prefix length of 0 to 32 behind the slash";
        }
        length = *given;
    }
    const std::uint32_t mask = mask_of(length);
    if ((*network & ~mask) != 0) {
        return "\"" + std::string(from) + "\" is an address within the network " + to_text(*network & mask) +
               "/" + std::to_string(length) + "; name the network";
    }
    const auto replacement = parse_address(to);
    if (!replacement) {
        return "\"" + std::string(to) + "\" is no IPv4 address";
    }
    rule = {*network, mask, *replacement};
    return {};
}

std::uint32_t rewritten(std::uint32_t address, std::span<const Rewrite> rules) noexcept {
    const auto rule =
        std::ranges::find_if(rules, [address](const Rewrite& r) { return (address & r.mask) == r.network; });
    return rule == rules.end() ? address : rule->replacement;
}

}  // namespace forwarder
