#pragma once
// The log lines of the service's main thread, compared with the model's.

#include <string>
#include <vector>

#include "control_model.h"

namespace stress {

/**
 * Takes away what the stand-in for the system log has recorded, so that it stays small.
 *
 * Lines of the loaders and of the render worker, which come whenever they come, are dropped.
 */
class ControlLog {
public:
    explicit ControlLog(std::string syslog_file) : file_(std::move(syslog_file)) {}

    /// Compares the lines since the last time; all of them are there when a call is answered. Empty, or what
    /// differs.
    [[nodiscard]] std::string difference(const std::vector<model::LogLine>& expected);
    /// Drops what was written so far.
    void skip();
    [[nodiscard]] long long compared() const { return compared_; }

private:
    std::string file_;
    long long compared_ = 0;
};

}  // namespace stress
