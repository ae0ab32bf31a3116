#pragma once
// Rules that send what is addressed to one network somewhere else.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace forwarder {

/// One rule: every address in `network` (with `mask`) is replaced by `replacement`; ports stay.
struct Rewrite {
    std::uint32_t network = 0;
    std::uint32_t mask = 0;
    std::uint32_t replacement = 0;

    bool operator==(const Rewrite&) const = default;
};

/**
 * Reads "FROM-NET=TO-ADDRESS", for example "192.0.2.0/24=127.0.0.2"; a network without a length is one
 * address.
 *
 * Returns an empty text and fills `rule`, or returns what is wrong with `text` and leaves `rule` alone.
 */
[[nodiscard]] std::string parse_rewrite(std::string_view text, Rewrite& rule);

/// `address` after the first rule that matches it; itself when none does. Rules are not applied twice.
[[nodiscard]] std::uint32_t rewritten(std::uint32_t address, std::span<const Rewrite> rules) noexcept;

}  // namespace forwarder
