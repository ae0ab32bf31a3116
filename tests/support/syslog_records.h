#pragma once
// Reads back what the stand-in for the system log has recorded.

#include <fstream>
#include <istream>
#include <string>
#include <vector>

namespace tests {

/// Variable of the environment that names the stand-in's file.
inline constexpr char kSyslogFileVariable[] = "SYSLOG_STANDIN_FILE";

/// One call of syslog().
struct SyslogLine {
    /// As given to openlog(); -1 when that was not called.
    int facility = -1;
    int priority = -1;
    std::string format;
    /// What the system log would show.
    std::string text;
};

/// Fields of every recorded call, name first, in calling order.
inline std::vector<std::vector<std::string>> syslog_calls(std::istream& file) {
    std::vector<std::vector<std::string>> calls;
    // A line without its line feed is still being written.
    for (std::string line; std::getline(file, line) && !file.eof();) {
        std::vector<std::string> fields(1);
        for (std::size_t i = 0; i < line.size(); ++i) {
            if (line[i] == '\t') {
                fields.emplace_back();
            } else if (line[i] == '\\' && i + 1 < line.size()) {
                ++i;
                fields.back() += line[i] == 't' ? '\t' : line[i] == 'n' ? '\n' : line[i];
            } else {
                fields.back() += line[i];
            }
        }
        calls.push_back(fields);
    }
    return calls;
}

inline std::vector<std::vector<std::string>> syslog_calls(const std::string& path) {
    std::ifstream file(path);
    return syslog_calls(file);
}

/// The recorded calls of syslog() in calling order.
inline std::vector<SyslogLine> syslog_lines(std::istream& file) {
    std::vector<SyslogLine> lines;
    for (const std::vector<std::string>& call : syslog_calls(file)) {
        if (call.size() == 5 && call[0] == "syslog") {
            lines.push_back({std::stoi(call[1]), std::stoi(call[2]), call[3], call[4]});
        }
    }
    return lines;
}

inline std::vector<SyslogLine> syslog_lines(const std::string& path) {
    std::ifstream file(path);
    return syslog_lines(file);
}

}  // namespace tests
