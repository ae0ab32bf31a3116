#pragma once
// Texts of the command line that stand for times and traffic classes.

#include <chrono>
#include <optional>
#include <string_view>

namespace forwarder {

/// DSCP of the class "expedited forwarding", which is for traffic that must not wait.
inline constexpr unsigned kExpeditedForwarding = 46;

/// Least and largest distance of two packets under --pace: 100,000 packets per second, and 1.
inline constexpr std::chrono::microseconds kShortestPaceGap{10};
inline constexpr std::chrono::seconds kLongestPaceGap{1};

/// Reads seconds as a decimal number from 0.8 to 1; nothing for any other text.
[[nodiscard]] std::optional<std::chrono::nanoseconds> parse_keep_alive(std::string_view text);

/// Reads packets per second ("2000", 1 to 100000) or the gap between two ("500us", "2ms", 10 us to 1000 ms)
/// as a gap; nothing for any other text.
[[nodiscard]] std::optional<std::chrono::nanoseconds> parse_pace(std::string_view text);

/// Reads a DSCP: a number from 0 to 63, or a class by name ("EF", "CS6", "AF41", in any case); nothing for
/// any other text.
[[nodiscard]] std::optional<unsigned> parse_dscp(std::string_view text);

}  // namespace forwarder
