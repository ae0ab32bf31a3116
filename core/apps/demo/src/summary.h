#pragma once
// The table at the end: expected against measured.

#include <string>
#include <vector>

#include "expectation.h"
#include "step_judge.h"

namespace demo {

/// Collects what was measured; decides and shows whether it agrees with what was expected.
class Summary {
public:
    /// Judges a whole step.
    void add(const StepExpectation& step, const StepJudge& judge);
    /// Judges something that is counted or asked once.
    void add_fact(const std::string& label, const std::string& expected, const std::string& measured);
    /// Says that a step could not be made; that is no failure.
    void add_skipped(const std::string& label, const std::string& reason);
    /// Shows lines, each with its line feed, that are no part of the judgement.
    void add_shown(const std::string& lines) { shown_ += lines; }

    [[nodiscard]] bool agrees() const noexcept { return complaints_.empty(); }
    /// Lines ending in line feeds.
    [[nodiscard]] std::string text() const;

private:
    void complain(const std::string& label, const std::vector<std::string>& reasons);

    std::string step_rows_;
    std::string fact_rows_;
    std::string shown_;
    std::vector<std::string> complaints_;
};

}  // namespace demo
