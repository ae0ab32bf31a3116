#pragma once
// The source context that error and warning lines begin with.

#include <cstddef>
#include <string>
#include <string_view>

namespace ondra {

/// Length of what precedes "core/libs/ondra/logger.cpp" in the compiler's name of that file, which is what
/// precedes every source path of this build tree; 0 when the name does not end so.
constexpr std::size_t source_prefix_length(std::string_view logger_file) {
    constexpr std::string_view kOwnPath = "core/libs/ondra/logger.cpp";
    return logger_file.ends_with(kOwnPath) ? logger_file.size() - kOwnPath.size() : 0;
}

/**
 * Context of one line: the path without its first `prefix` characters, line, blank, function and ") ".
 *
 * Warnings keep two characters more of the path, and nothing separates path and line; both on purpose, since
 * log readers rely on it. A path shorter than the cut contributes nothing. Null texts count as empty. Levels
 * but error and warning have no context: empty text.
 */
[[nodiscard]] std::string log_context(int level, std::size_t prefix, const char* file, int line,
                                      const char* function);

}  // namespace ondra
