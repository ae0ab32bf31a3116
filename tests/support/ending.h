#pragma once
// Runs a program to its end.

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "support/child_program.h"

namespace tests {

/// How a program ended, and what it has said.
struct Ending {
    /// Nothing when it had not ended at the deadline.
    std::optional<int> status;
    std::string output;
    std::string error;
};

/// Waits for the end of a program and of its outputs.
[[nodiscard]] inline Ending wait_for_end(ChildProgram& program,
                                         std::chrono::milliseconds deadline = ChildProgram::kDeadline) {
    const std::optional<int> status = program.wait_exit(deadline);
    return {status, program.output(), program.error_output()};
}

/// Runs a program; the parameters are those of ChildProgram.
[[nodiscard]] inline Ending run_to_end(const std::vector<std::string>& command,
                                       const std::vector<std::string>& environment = {}) {
    ChildProgram program(command, environment);
    return wait_for_end(program);
}

}  // namespace tests
