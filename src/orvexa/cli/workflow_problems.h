#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "orvexa/cli/console.h"
#include "orvexa/common/value.h"
#include "orvexa/model/workflow/model.h"

namespace orvexa::cli {

/// What is wrong with a workflow file, whatever the capture.
/// @throws std::exception with a sentence that names the file when it is not a workflow at all.
[[nodiscard]] std::vector<model::WorkflowProblem> workflow_problems(const std::filesystem::path& file);

/// One line for the user: file, step and what is wrong.
[[nodiscard]] std::string problem_sentence(const std::string& file, const model::WorkflowProblem& problem);

/// [{"step", "text"}, ...]
[[nodiscard]] common::Value problems_document(const std::vector<model::WorkflowProblem>& problems);

/// Tells the user every problem of a workflow file.
/// @return whether there is none.
[[nodiscard]] bool is_fit_to_run(Console& console, const std::filesystem::path& file);

}  // namespace orvexa::cli
