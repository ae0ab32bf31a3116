#pragma once
// `record` as a program, and a directory for what it writes.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "support/child_program.h"

namespace tests {

inline std::vector<std::string> command(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {RECORDING_PROGRAM, "record"});
    return arguments;
}

/// The port that the running program names; 0 when it does not come up.
inline std::uint16_t port_of(const ChildProgram& program) {
    if (!program.wait_for_error(", receive buffer")) {
        return 0;
    }
    const std::string text = program.error_output();
    return static_cast<std::uint16_t>(std::atoi(text.c_str() + text.find("0.0.0.0:") + 8));
}

class RecordProgramFixture : public testing::Test {
protected:
    [[nodiscard]] std::string path(const char* name = "out.rec") const {
        return directory_.filePath(QString::fromLatin1(name)).toStdString();
    }

    QTemporaryDir directory_;
};

}  // namespace tests
