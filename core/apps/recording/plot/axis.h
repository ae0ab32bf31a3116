#pragma once
// Marks of an axis at round values.

#include <string>
#include <vector>

namespace plot {

struct Tick {
    double value = 0;
    std::string label;
};

/// Marks from `begin` to `end` (both in seconds, begin < end), at most `most` of them, at round times. From a
/// minute on they read "1:30", below "12.5".
[[nodiscard]] std::vector<Tick> time_ticks(double begin, double end, int most);

/// Marks at 1, 2 or 5 times a power of ten, from 0 to `end`, above 0; at most `most` of them and the zero.
[[nodiscard]] std::vector<Tick> linear_ticks(double end, int most);

/// Marks at powers of ten within `begin` to `end`, both above 0.
[[nodiscard]] std::vector<Tick> power_ticks(double begin, double end);

/// Whether the axis from `begin` to `end` seconds is labelled in minutes.
[[nodiscard]] bool in_minutes(double begin, double end);

}  // namespace plot
