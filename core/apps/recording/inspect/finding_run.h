#pragma once
// Findings that stand for several frames or packets one after another.

#include <cstdint>

#include "inspect/finding.h"

namespace inspect {

/// Joins findings of one kind that follow each other packet by packet into one.
class FindingRun {
public:
    explicit FindingRun(Findings& findings) : findings_(findings) {}

    /// @param ordinal  number of what was found; the run goes on while it grows by one
    void add(std::uint64_t ordinal, std::uint64_t offset, std::uint64_t frame) {
        if (run_.count == 0) {
            run_.offset = offset;
            run_.frame = frame;
        }
        ++run_.count;
        next_ = ordinal + 1;
    }
    /// How many the run has so far.
    [[nodiscard]] std::uint64_t count() const noexcept { return run_.count; }
    /// True when a finding of this number begins another run.
    [[nodiscard]] bool breaks(std::uint64_t ordinal) const { return run_.count != 0 && ordinal != next_; }
    /// Ends the run: hands it over, if there is one, with what `describe` makes of its count.
    template <typename Describe>
    void end(const char* kind, Level level, Describe describe) {
        if (run_.count != 0) {
            run_.kind = kind;
            run_.level = level;
            run_.text = describe(run_.count);
            findings_.add(run_);
        }
        run_.count = 0;
    }

private:
    Findings& findings_;
    Finding run_{"", Level::Note, 0, 0, 0, ""};
    std::uint64_t next_ = 0;
};

}  // namespace inspect
