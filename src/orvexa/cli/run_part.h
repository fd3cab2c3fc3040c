#pragma once

#include "orvexa/cli/command_info.h"
#include "orvexa/common/value.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/entities/result_bundle.h"

namespace orvexa::cli {

// `orvexa run --step N` and `--operation N`: intermediate results of one step. Workflow and capture are loaded.

/// @throws UsageError when both are asked for.
void expect_one_part(const GivenWords& given);
[[nodiscard]] int run_step(Console& console, controller::Controller& controller, const GivenWords& given);
[[nodiscard]] int run_operation(Console& console, controller::Controller& controller, const GivenWords& given);

// In run_command.cpp:

/// {operation: {"metrics", "units", "reasons", "error" where it failed, "regions"}}
[[nodiscard]] common::Value results_document(const model::ResultMap& results);
/// Metrics over the whole mask as a table for the eye.
[[nodiscard]] std::string results_text(const model::ResultMap& results);

}  // namespace orvexa::cli
