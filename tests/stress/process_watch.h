#pragma once
// What a running process holds: threads, descriptors, memory.

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace stress {

/// Reads /proc. A process that is gone has none of it.
class ProcessWatch {
public:
    explicit ProcessWatch(pid_t pid) : directory_("/proc/" + std::to_string(pid)) {}

    [[nodiscard]] std::size_t threads() const { return entries("task"); }
    [[nodiscard]] std::size_t descriptors() const { return entries("fd"); }
    /// Resident memory in kB.
    [[nodiscard]] long memory() const;

    /// Remembers the memory after so many calls.
    void sample(long calls) { samples_.emplace_back(calls, memory()); }
    /// Growth in kB from the sample half-way to the last.
    [[nodiscard]] long growth() const {
        return samples_.back().second - samples_[samples_.size() / 2].second;
    }
    /// Growth per 1,000 calls in kB over the second half of the samples, by least squares.
    [[nodiscard]] double slope() const;
    [[nodiscard]] const std::vector<std::pair<long, long>>& samples() const { return samples_; }

private:
    [[nodiscard]] std::size_t entries(const char* what) const;

    std::string directory_;
    std::vector<std::pair<long, long>> samples_;
};

}  // namespace stress
