#pragma once
// The counters as a text file for Prometheus, for --metrics.

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

#include "report.h"

namespace forwarder {

/// The counters in the text format that Prometheus and its collectors of text files read.
///
/// @param write_failures  times that the file could not be written so far
[[nodiscard]] std::string to_prometheus(const Report& report, std::uint64_t write_failures);

/**
 * Replaces a file as a whole, so that a reader sees the old text or the new one and never a part. Main thread
 * only: a slow disk holds up the reports and nothing that is sent.
 */
class MetricsFile {
public:
    /// Time between two writes: collectors look every 15 s or more seldom.
    static constexpr std::chrono::seconds kPeriod{5};

    explicit MetricsFile(std::string path) : path_(std::move(path)) {}

    /// Writes the text. Returns what is to be said of it: why it failed, the first time that it does; empty
    /// otherwise.
    [[nodiscard]] std::string write(const std::string& text);
    [[nodiscard]] std::uint64_t failures() const noexcept { return failures_; }

private:
    /// Why it failed; empty on success.
    [[nodiscard]] std::string try_write(const std::string& text) const;

    std::string path_;
    std::uint64_t failures_ = 0;
};

}  // namespace forwarder
