#include "ondra/literal_format.h"

#include <algorithm>

namespace ondra {

namespace {

constexpr std::string_view kDigits = "0123456789";

/// Removes up to three digits; more of them stay, and make the conversion one that is not accepted. A width
/// from a foreign text must not make a line of gigabytes.
void skip_number(std::string_view& text) {
    const std::size_t length = std::min(text.find_first_not_of(kDigits), text.size());
    text.remove_prefix(std::min<std::size_t>(length, 3));
}

/// Length of the conversion that `text` begins with (at its "%"), if that fetches no argument; 0 otherwise.
std::size_t harmless_conversion(std::string_view text) {
    std::string_view rest = text.substr(1);
    if (rest.starts_with('%')) {
        return 2;
    }
    rest.remove_prefix(std::min(rest.find_first_not_of("-+ #0'"), rest.size()));
    skip_number(rest);
    if (!rest.empty() && rest.front() == '.') {
        rest.remove_prefix(1);
        skip_number(rest);
    }
    // "%%" with anything in between is undefined (ISO C), so only "m" is left.
    if (!rest.starts_with('m')) {
        return 0;
    }
    return text.size() - rest.size() + 1;
}

}  // namespace

std::string make_conversions_literal(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (;;) {
        const std::size_t percent = std::min(text.find('%'), text.size());
        result.append(text.substr(0, percent));
        text.remove_prefix(percent);
        if (text.empty()) {
            return result;
        }
        if (const std::size_t length = harmless_conversion(text); length > 0) {
            result.append(text.substr(0, length));
            text.remove_prefix(length);
        } else {
            result.append("%%");
            text.remove_prefix(1);
        }
    }
}

}  // namespace ondra
