#pragma once
// One thing that a check found, and the list of them.

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace inspect {

enum class Level {
    Note,     ///< good to know; nothing to mend
    Warning,  ///< played as it is written, which is hardly what its author means
    Error     ///< not played as it is written, or not at all
};

/// "note", "warning", "error".
[[nodiscard]] const char* level_name(Level level) noexcept;

/// One thing that was found in a recording.
struct Finding {
    /// Its name in lower case with hyphens, for programs; docs/check.md lists all of them.
    std::string kind;
    Level level = Level::Note;
    /// First byte of the packet concerned, from 0.
    std::uint64_t offset = 0;
    /// Frame, as the service plays them, from 0.
    std::uint64_t frame = 0;
    /// How often, when the finding stands for several frames or packets one after another.
    std::uint64_t count = 1;
    /// A sentence that says what is wrong and what to do.
    std::string text;
};

/// Findings in the order of the recording. A recording can have the same fault in every frame, so of each
/// kind only the first ones are kept and the others counted.
class Findings {
public:
    /// @param per_kind  most findings kept of one kind; 0: all
    explicit Findings(std::size_t per_kind) : per_kind_(per_kind) {}

    void add(Finding finding);
    /// Puts them into the order of their offsets; equal ones keep theirs.
    void sort();

    [[nodiscard]] const std::vector<Finding>& list() const noexcept { return list_; }
    /// Per kind, how many were found and not kept.
    [[nodiscard]] const std::map<std::string, std::uint64_t, std::less<>>& left_out() const noexcept {
        return left_out_;
    }
    /// How many were found of a level, also of those not kept.
    [[nodiscard]] std::uint64_t count(Level level) const noexcept {
        return counts_[static_cast<std::size_t>(level)];
    }
    [[nodiscard]] bool has(std::string_view kind) const { return seen_.contains(kind); }

private:
    std::size_t per_kind_;
    std::vector<Finding> list_;
    std::map<std::string, std::uint64_t, std::less<>> seen_;
    std::map<std::string, std::uint64_t, std::less<>> left_out_;
    std::uint64_t counts_[3] = {0, 0, 0};
};

}  // namespace inspect
