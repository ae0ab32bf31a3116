#pragma once
// The real program, started in a directory of its own on a bus of its own.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QTemporaryDir>

#include "started_program.h"
#include "support/syslog_records.h"

namespace integration {

/// True when all of `text` matches the Perl-compatible expression.
[[nodiscard]] bool matches(const std::string& text, const std::string& expression);

/// "NAME=value" each: how the sanitizer of a program that a test starts is to behave.
[[nodiscard]] std::vector<std::string> sanitizer_options();

/// How to start the service, beyond the usual.
struct ServiceSettings {
    /// "NAME=value"; the bus's address comes in so.
    std::vector<std::string> environment;
    /// Path to start the program by, relative to the installation.
    std::string program = "bin/cuewright";
    /// Libraries to preload besides the system log's stand-in.
    std::string preload;
    /// Content of the brand file, which only this process sees; needs a mount namespace.
    std::optional<std::string> brand;
    /// Runs in the child before the program, if given; as ProgramSettings::prepare.
    std::function<int()> prepare;
};

/**
 * A directory with bin/cuewright, data (a link to a show's directory) and what a run leaves behind.
 */
class Installation {
public:
    /// @param data  the show's directory; nothing for an installation without data
    explicit Installation(const std::string& data = "");

    /// Absolute, without links in it.
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    QTemporaryDir directory_;
    std::string path_;
};

/**
 * One run of the service.
 *
 * The system log's stand-in is preloaded, so every line can be read back. In a build with the address
 * sanitizer it comes before the sanitizer's own library, which ASAN_OPTIONS has to allow; it takes no part in
 * memory management, so that does no harm.
 */
class Service {
public:
    Service(const Installation& installation, const ServiceSettings& settings);

    [[nodiscard]] StartedProgram& program() { return program_; }
    /// The lines of the system log so far, as "err text", "warning text" and "info text"; what precedes the
    /// text of errors and warnings is reduced to the source's file name.
    [[nodiscard]] std::vector<std::string> log() const;
    /// The same lines as recorded.
    [[nodiscard]] std::vector<tests::SyslogLine> raw_log() const { return tests::syslog_lines(syslog_file_); }
    /// All recorded calls of the system log.
    [[nodiscard]] std::vector<std::vector<std::string>> log_calls() const {
        return tests::syslog_calls(syslog_file_);
    }
    /// Where the system log's stand-in writes; a file that is taken away is made anew.
    [[nodiscard]] const std::string& syslog_file() const { return syslog_file_; }
    /// Waits for the line, as log() shows it.
    [[nodiscard]] bool wait_for_log(const std::string& line) const;
    /// What the program printed; empty unless a sanitizer or the runtime has spoken.
    [[nodiscard]] std::string output() const;

private:
    std::string syslog_file_;
    std::string output_file_;
    StartedProgram program_;
};

}  // namespace integration
