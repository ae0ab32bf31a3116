#pragma once
// The recording parser beside its model.

#include <string>

#include "parser_model.h"
#include "parser_scenario.h"

/**
 * Plays one scenario to a parser and to `model`, which is as new as the parser.
 *
 * Returns what differs, empty when both tell the same.
 */
[[nodiscard]] std::string difference_of(const ParserScenario& scenario, ParserModel& model);
