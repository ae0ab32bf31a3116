#pragma once
// Findings of a data directory as text and as JSON.

#include <cstdio>
#include <string>

#include "data_finding.h"
#include "show_check.h"

namespace datacheck {

/// "FILE:LINE:COLUMN: level: PLACE: text [kind]", without what there is not.
[[nodiscard]] std::string finding_line(const DataFinding& finding);

/// A line for each finding of `lowest` level or above, and a summary line.
void print_findings(std::FILE* out, const std::string& root, const DataFindings& findings,
                    const ShowSummary& summary, Level lowest);

/// The same as one JSON object, as text with a line end.
[[nodiscard]] std::string findings_json(const std::string& root, const DataFindings& findings,
                                        const ShowSummary& summary, Level lowest);

}  // namespace datacheck
