#include "cli/value_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <system_error>
#include <utility>

#include "cli/failure.h"

namespace cli {

namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;
/// What begins like another comes after it.
constexpr std::array<std::pair<std::string_view, std::uint64_t>, 6> kUnits{{{"ns", 1},
                                                                            {"us", 1'000},
                                                                            {"ms", 1'000'000},
                                                                            {"s", kSecond},
                                                                            {"m", 60 * kSecond},
                                                                            {"h", 3600 * kSecond}}};

/// Takes a number off the front of `text`; false when there is none, or it is too large.
template <typename Number>
bool take_number(std::string_view& text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) {
        return false;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool take_range(std::string_view& text, NumberRange& range) {
    if (!take_number(text, range.first)) {
        return false;
    }
    range.last = range.first;
    if (text.starts_with('-')) {
        text.remove_prefix(1);
        return take_number(text, range.last);
    }
    return true;
}

/// Takes "12.5" off the front of `text`: the digits as one number, and how many of them are behind the point.
bool take_decimal(std::string_view& text, std::uint64_t& digits, int& decimals) {
    if (!take_number(text, digits)) {
        return false;
    }
    decimals = 0;
    if (!text.starts_with('.')) {
        return true;
    }
    text.remove_prefix(1);
    for (; !text.empty() && text.front() >= '0' && text.front() <= '9'; text.remove_prefix(1)) {
        const auto digit = static_cast<std::uint64_t>(text.front() - '0');
        if (__builtin_mul_overflow(digits, std::uint64_t{10}, &digits) ||
            __builtin_add_overflow(digits, digit, &digits)) {
            return false;
        }
        ++decimals;
    }
    return decimals > 0;
}

/// Takes a number and its unit off the front of `text` and adds them to `sum`.
bool take_part(std::string_view& text, std::uint64_t& sum) {
    std::uint64_t value = 0;
    int decimals = 0;
    if (!take_decimal(text, value, decimals)) {
        return false;
    }
    std::uint64_t unit = kSecond;
    if (!text.empty()) {
        const auto* const found = std::ranges::find_if(
            kUnits, [&](const auto& candidate) { return text.starts_with(candidate.first); });
        if (found == kUnits.end()) {
            return false;
        }
        text.remove_prefix(found->first.size());
        unit = found->second;
    }
    for (; decimals > 0; --decimals) {
        // Of the two factors, one has to give each of the tens.
        if (unit % 10 == 0) {
            unit /= 10;
        } else if (value % 10 == 0) {
            value /= 10;
        } else {
            return false;
        }
    }
    return !__builtin_mul_overflow(value, unit, &value) && !__builtin_add_overflow(sum, value, &sum);
}

}  // namespace

std::vector<NumberRange> parse_ranges(const std::string& option, std::string_view text, std::uint32_t max) {
    const auto refuse = [&, whole = text] {
        throw UsageError(option + " " + std::string(whole) + ": expected numbers and ranges up to " +
                         std::to_string(max) + ", for example 0-3,7");
    };
    std::vector<NumberRange> ranges;
    for (bool more = true; more;) {
        NumberRange range;
        if (!take_range(text, range) || range.last < range.first || range.last > max) {
            refuse();
        }
        ranges.push_back(range);
        more = text.starts_with(',');
        if (more) {
            text.remove_prefix(1);
        }
    }
    if (!text.empty()) {
        refuse();
    }
    return ranges;
}

std::vector<std::uint32_t> numbers_of(const std::string& option, const std::vector<NumberRange>& ranges) {
    std::vector<std::uint32_t> numbers;
    for (const NumberRange& range : ranges) {
        for (std::uint64_t number = range.first; number <= range.last; ++number) {
            numbers.push_back(static_cast<std::uint32_t>(number));
        }
    }
    std::vector<std::uint32_t> sorted = numbers;
    std::ranges::sort(sorted);
    if (const auto twice = std::ranges::adjacent_find(sorted); twice != sorted.end()) {
        throw UsageError(option + ": " + std::to_string(*twice) + " is given twice");
    }
    return numbers;
}

std::chrono::nanoseconds parse_time(const std::string& option, std::string_view text) {
    std::string_view rest = text;
    std::uint64_t sum = 0;
    do {
        if (!take_part(rest, sum)) {
            throw UsageError(option + " " + std::string(text) +
                             ": expected a time of whole nanoseconds, for example 90, 1m30s or 12.5ms");
        }
    } while (!rest.empty());
    if (sum > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        throw UsageError(option + " " + std::string(text) + ": is longer than 292 years");
    }
    return std::chrono::nanoseconds(static_cast<std::int64_t>(sum));
}

std::string time_text(std::chrono::nanoseconds time) {
    // Unsigned, so that the smallest number has its opposite, too.
    auto count = static_cast<std::uint64_t>(time.count());
    std::string text;
    if (time.count() < 0) {
        count = 0 - count;
        text = "-";
    }
    text += std::to_string(count / kSecond);
    if (const std::uint64_t part = count % kSecond; part != 0) {
        std::string decimals = std::to_string(part);
        decimals.insert(0, 9 - decimals.size(), '0');
        decimals.erase(decimals.find_last_not_of('0') + 1);
        text += "." + decimals;
    }
    return text + " s";
}

}  // namespace cli
