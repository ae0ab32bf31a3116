#pragma once
// Values of options that several companions take: sets of numbers, times.

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// Numbers from `first` to `last`, both included.
struct NumberRange {
    std::uint32_t first = 0;
    std::uint32_t last = 0;

    bool operator==(const NumberRange&) const = default;
};

/**
 * Reads numbers and ranges, such as "0-3,7", in the order in which they are given.
 *
 * Throws UsageError, beginning with `option`, when the text is something else, a number is above `max`, or a
 * range runs backwards.
 */
[[nodiscard]] std::vector<NumberRange> parse_ranges(const std::string& option, std::string_view text,
                                                    std::uint32_t max);

/// Every number of the ranges, in their order. Throws UsageError, beginning with `option`, for one given
/// twice.
[[nodiscard]] std::vector<std::uint32_t> numbers_of(const std::string& option,
                                                    const std::vector<NumberRange>& ranges);

/**
 * Reads a time of zero or more, exactly: "90" and "1.5" are seconds, the units h, m, s, ms, us and ns follow
 * their number, and several are added up ("1m30s").
 *
 * Throws UsageError, beginning with `option`, for anything else, for a part of a nanosecond, and for what
 * does not fit into 63 bits of nanoseconds.
 */
[[nodiscard]] std::chrono::nanoseconds parse_time(const std::string& option, std::string_view text);

/// A time in seconds, exactly: "12.5 s". Negative ones, too.
[[nodiscard]] std::string time_text(std::chrono::nanoseconds time);

}  // namespace cli
