#pragma once

#include <string>

#include "orvexa/cli/console.h"
#include "orvexa/common/value.h"
#include "orvexa/model/workflow/model.h"

namespace orvexa::cli {

/// {"file", "title", "mask_operations": [{"step", "op", "params"}], "result_operations": [...], "outputs" where there
/// are any, "problems"}; steps are counted from 1.
[[nodiscard]] common::Value workflow_document(const std::string& file, const model::Workflow& workflow);

/// A step as it would be added: "erode radius=3".
[[nodiscard]] std::string step_text(const model::OperationConfig& step);

/// A line on standard error for each thing that is wrong with a workflow; the work is done all the same.
void remark_problems(Console& console, const std::string& file, const model::Workflow& workflow);

/// What a command that changed and saved a workflow answers: the document, or the line that says what it did.
/// @return the exit code.
int answer_edited(Console& console, const std::string& file, const model::Workflow& workflow, const std::string& line);

}  // namespace orvexa::cli
