#pragma once
// printf-style text in a std::string.

#include <string>

namespace forwarder {

/// Formats like printf; an empty text when the format cannot be carried out.
[[nodiscard]] std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace forwarder
