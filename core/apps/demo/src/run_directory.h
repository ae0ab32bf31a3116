#pragma once
// The directory in which everything of one run lies.

#include <filesystem>

namespace demo {

/// A fresh directory that is removed in the end, or one that the user named and keeps. Neither copied nor
/// moved.
class RunDirectory {
public:
    /**
     * @param keep  empty: a temporary directory; otherwise a directory that is empty or not there yet
     * Throws Failure.
     */
    explicit RunDirectory(const std::filesystem::path& keep);
    ~RunDirectory();
    RunDirectory(const RunDirectory&) = delete;
    RunDirectory& operator=(const RunDirectory&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

private:
    std::filesystem::path path_;
    bool temporary_;
};

}  // namespace demo
