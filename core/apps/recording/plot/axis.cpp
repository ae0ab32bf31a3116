#include "plot/axis.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace plot {

namespace {

constexpr double kMinute = 60;
constexpr double kHour = 3600;

/// The smallest of 1, 2, 5 times a power of ten that is not below `least`.
double round_step(double least) {
    const double power = std::pow(10.0, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= least * (1 - 1e-9)) {
            return factor * power;
        }
    }
    return 10 * power;
}

double time_step(double least) {
    if (least <= 1) {
        return round_step(least);
    }
    for (const double step : {2.0, 5.0, 10.0, 15.0, 30.0, 60.0, 120.0, 300.0, 600.0, 900.0, 1800.0}) {
        if (step >= least) {
            return step;
        }
    }
    return kHour * round_step(std::max(least / kHour, 1.0));
}

/// `value` with as many decimals as a step of this size needs.
std::string decimal_text(double value, double step) {
    const int decimals = std::clamp(static_cast<int>(std::ceil(-std::log10(step) - 1e-9)), 0, 9);
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string minutes_text(double value) {
    const auto seconds = std::llround(value);
    char text[64];
    if (value >= kHour) {
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", seconds / 3600, seconds / 60 % 60,
                      seconds % 60);
    } else {
        std::snprintf(text, sizeof text, "%lld:%02lld", seconds / 60, seconds % 60);
    }
    return text;
}

}  // namespace

bool in_minutes(double begin, double end) {
    // A short stretch late in a recording needs the decimals.
    return end >= 2 * kMinute && end - begin >= 20;
}

std::vector<Tick> time_ticks(double begin, double end, int most) {
    const double step = time_step((end - begin) / most);
    const bool minutes = in_minutes(begin, end);
    std::vector<Tick> ticks;
    // A mark at the very end is not lost to rounding.
    constexpr double kSlack = 1e-6;
    const auto first = static_cast<std::int64_t>(std::ceil(begin / step - kSlack));
    const auto last = static_cast<std::int64_t>(std::floor(end / step + kSlack));
    for (std::int64_t number = first; number <= last; ++number) {
        const double value = static_cast<double>(number) * step;
        ticks.push_back({value, minutes ? minutes_text(value) : decimal_text(value, step)});
    }
    return ticks;
}

std::vector<Tick> linear_ticks(double end, int most) {
    const double step = round_step(end / most);
    std::vector<Tick> ticks;
    const auto last = static_cast<int>(std::floor(end / step + 1e-9));
    for (int number = 0; number <= last; ++number) {
        ticks.push_back({number * step, decimal_text(number * step, step)});
    }
    return ticks;
}

std::vector<Tick> power_ticks(double begin, double end) {
    std::vector<Tick> ticks;
    const auto first = static_cast<int>(std::ceil(std::log10(begin) - 1e-9));
    const auto last = static_cast<int>(std::floor(std::log10(end) + 1e-9));
    for (int exponent = first; exponent <= last; ++exponent) {
        const double value = std::pow(10.0, exponent);
        ticks.push_back({value, decimal_text(value, std::min(value, 1.0))});
    }
    return ticks;
}

}  // namespace plot
