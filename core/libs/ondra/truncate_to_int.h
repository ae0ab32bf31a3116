#pragma once
// Numbers of a JSON file as integers.

#include <limits>

namespace ondra {

/**
 * Cuts the fraction off: 3.7 is 3 and -3.7 is -3.
 *
 * Numbers outside 32 bits become the nearest limit, what is not a number 0. (QJsonValue::toInt() gives its
 * default for anything that has a fraction or does not fit.)
 */
[[nodiscard]] constexpr int truncate_to_int(double number) noexcept {
    constexpr int kLowest = std::numeric_limits<int>::min();
    constexpr int kHighest = std::numeric_limits<int>::max();
    if (number != number) {
        return 0;
    }
    if (number <= static_cast<double>(kLowest)) {
        return kLowest;
    }
    if (number >= static_cast<double>(kHighest)) {
        return kHighest;
    }
    return static_cast<int>(number);
}

}  // namespace ondra
