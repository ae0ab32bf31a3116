#include "ondra/firmware_reply.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <system_error>

namespace ondra::device {

namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
constexpr std::size_t kValueLength = 16;

void skip_white_space(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
}

/// Takes a decimal number with an optional sign off the front.
std::optional<int> take_number(std::string_view& text) {
    skip_white_space(text);
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') {
        text.remove_prefix(1);
    }
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

/// Value of one line if it is that of `row`; empty otherwise, as a value is never empty.
std::string_view row_value(std::string_view line, int row) {
    if (take_number(line) != row || line.empty() || line.front() != ':') {
        return {};
    }
    line.remove_prefix(1);
    skip_white_space(line);
    return line.substr(0, std::min(line.find_first_of(kWhiteSpace), kValueLength));
}

}  // namespace

std::string parse_otp_reply(std::string_view reply, int row) {
    for (std::size_t end = reply.find('\n'); end != std::string_view::npos; end = reply.find('\n')) {
        if (const std::string_view value = row_value(reply.substr(0, end), row); !value.empty()) {
            return std::string(value);
        }
        reply.remove_prefix(end + 1);
    }
    return {};
}

std::string parse_memory_reply(std::string_view reply) {
    const std::size_t equals = reply.find('=');
    return equals == std::string_view::npos ? std::string() : std::string(reply.substr(equals + 1));
}

}  // namespace ondra::device
