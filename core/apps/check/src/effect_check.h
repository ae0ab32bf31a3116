#pragma once
// What an effect says that the service accepts and no author means.

#include <string>

#include "data_finding.h"
#include "description_check.h"

namespace datacheck {

/// Looks at one effect by itself: its frame rate, its packets per frame, its outputs.
void check_effect(const CheckedEffect& effect, const std::string& file, DataFindings& findings);

}  // namespace datacheck
