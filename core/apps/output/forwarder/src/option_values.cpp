#include "option_values.h"

#include <charconv>
#include <system_error>

#include "endpoint.h"

namespace forwarder {

namespace {

using std::chrono::nanoseconds;

/// The letter without its case, where it is one of the alphabet.
char upper(char letter) {
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

bool begins_with(std::string_view text, std::string_view word) {
    if (text.size() < word.size()) {
        return false;
    }
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (upper(text[i]) != word[i]) {
            return false;
        }
    }
    return true;
}

template <typename Unit>
std::optional<nanoseconds> parse_gap(std::string_view digits) {
    const auto number = parse_number(digits, 1, 1'000'000);
    if (!number) {
        return std::nullopt;
    }
    const nanoseconds gap = Unit(*number);
    return gap < kShortestPaceGap || gap > kLongestPaceGap ? std::nullopt : std::optional(gap);
}

}  // namespace

std::optional<nanoseconds> parse_keep_alive(std::string_view text) {
    double seconds = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, seconds, std::chars_format::fixed);
    // Written so that what is no number at all fails, too.
    if (error != std::errc{} || stop != end || !(seconds >= 0.8 && seconds <= 1.0)) {
        return std::nullopt;
    }
    return std::chrono::round<nanoseconds>(std::chrono::duration<double>(seconds));
}

std::optional<nanoseconds> parse_pace(std::string_view text) {
    if (text.ends_with("us")) {
        return parse_gap<std::chrono::microseconds>(text.substr(0, text.size() - 2));
    }
    if (text.ends_with("ms")) {
        return parse_gap<std::chrono::milliseconds>(text.substr(0, text.size() - 2));
    }
    const auto rate = parse_number(text, 1, 100'000);
    return rate ? std::optional(nanoseconds(std::chrono::seconds(1)) / *rate) : std::nullopt;
}

std::optional<unsigned> parse_dscp(std::string_view text) {
    if (text.size() == 2 && begins_with(text, "EF")) {
        return kExpeditedForwarding;
    }
    if (text.size() == 3 && begins_with(text, "CS")) {
        const auto selector = parse_number(text.substr(2), 0, 7);
        return selector ? std::optional(8 * *selector) : std::nullopt;
    }
    if (text.size() == 4 && begins_with(text, "AF")) {
        const auto forwarding = parse_number(text.substr(2, 1), 1, 4);
        const auto precedence = parse_number(text.substr(3), 1, 3);
        return forwarding && precedence ? std::optional(8 * *forwarding + 2 * *precedence) : std::nullopt;
    }
    return parse_number(text, 0, 63);
}

}  // namespace forwarder
