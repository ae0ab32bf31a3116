#pragma once
// One thing that is wrong in a data directory, and where.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "inspect/finding.h"

namespace datacheck {

using inspect::Level;

struct DataFinding {
    /// Name in lower case with hyphens; docs/check.md lists all of them.
    std::string kind{};
    Level level = Level::Note;
    /// Relative to the data directory, where it lies within that.
    std::string file{};
    /// Place in a JSON document, such as "[2].outputs[0]"; empty: the whole file.
    std::string element{};
    /// A sentence that says what is wrong and what to do.
    std::string text{};
    /// Place of a syntax error, from 1; 0: none.
    int line = 0;
    int column = 0;
    /// Place in a recording.
    std::optional<inspect::Finding> packet{};
};

/// Everything that was found, in the order in which it was.
class DataFindings {
public:
    void add(DataFinding finding);

    [[nodiscard]] const std::vector<DataFinding>& list() const noexcept { return list_; }
    [[nodiscard]] std::uint64_t count(Level level) const noexcept;

private:
    std::vector<DataFinding> list_;
};

}  // namespace datacheck
