#pragma once
// A file in memory, for code that reads files by path.

#include <string>
#include <string_view>

#include "target.h"

namespace fuzz {

/// Exists as long as the object, under a path that only this process can open.
class MemoryFile {
public:
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /// Replaces the content.
    void write(std::string_view content);

    /// Where name() lies.
    static constexpr const char* kDirectory = "/proc/self/fd";
    [[nodiscard]] std::string name() const { return std::to_string(descriptor_); }
    [[nodiscard]] std::string path() const { return std::string(kDirectory) + "/" + name(); }

private:
    int descriptor_;
};

}  // namespace fuzz
