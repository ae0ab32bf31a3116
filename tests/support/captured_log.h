#pragma once
// What the logger writes, for tests.

#include <string>
#include <string_view>
#include <vector>

/**
 * While it lives, the logger's lines go into it instead of to standard error, at every level in use.
 *
 * Error and warning lines come without their source context, so that whole lines can be compared. Uses the
 * process's standard error and logger: one at a time. Afterwards the logger has its default settings.
 */
class CapturedLog {
public:
    /// Shows every level that the service uses.
    static constexpr int kAllLevels = 6;

    explicit CapturedLog(int level = kAllLevels);
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;
    ~CapturedLog();

    /// All lines so far. Any thread.
    [[nodiscard]] std::vector<std::string> lines() const;
    [[nodiscard]] bool has(std::string_view line) const;
    /// The lines that begin with `start`.
    [[nodiscard]] std::vector<std::string> lines_starting(std::string_view start) const;

private:
    int captured_ = -1;
    int saved_stderr_ = -1;
};

/// Result of level_of() for a line that no level shows.
inline constexpr int kNeverLogged = 1000;

/// The level of a line: the lowest logger level, -2 to 6, at which `action` makes it appear.
template <typename Action>
[[nodiscard]] int level_of(std::string_view line, Action action) {
    for (int level = -3; level <= CapturedLog::kAllLevels; ++level) {
        const CapturedLog log(level);
        action();
        if (log.has(line)) {
            return level;
        }
    }
    return kNeverLogged;
}
