#pragma once
// Makes a text safe to be used as a printf format without arguments.

#include <string>
#include <string_view>

namespace ondra {

/**
 * Doubles the "%" of every conversion in `text` that would fetch an argument, so that it prints as it stands.
 *
 * "%%" and "%m" fetch none and stay, the latter also with flags, width and precision of up to three digits
 * each; "*" and "1$" do fetch. What is no complete conversion is made literal, too: a format must not contain
 * it.
 */
[[nodiscard]] std::string make_conversions_literal(std::string_view text);

}  // namespace ondra
