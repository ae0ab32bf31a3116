#pragma once
// A recording's report as text and as JSON.

#include <cstdio>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "inspect/inspection.h"

namespace inspect {

/// "byte 1536, frame 4: TEXT [kind]", with the count where there are several.
[[nodiscard]] std::string finding_text(const Finding& finding);

/// {"kind", "level", "offset", "frame", "count", "text"}.
[[nodiscard]] nlohmann::ordered_json finding_json(const Finding& finding);

/// One line a finding of `lowest` level or above, and a summary line.
void print_report(std::FILE* out, const RecordingReport& report, Level lowest);

/// All of the report, and its findings of `lowest` level or above.
[[nodiscard]] nlohmann::ordered_json report_json(const RecordingReport& report, Level lowest);

/// "2 errors, 1 warning, 3 notes"; "good" when there are neither errors nor warnings.
[[nodiscard]] std::string counts_text(std::uint64_t errors, std::uint64_t warnings, std::uint64_t notes);

/// A level by its name.
[[nodiscard]] Level level_of_name(const std::string& name);

}  // namespace inspect
