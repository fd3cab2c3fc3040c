#include "orvexa/cli/workflow_document.h"

#include <fmt/format.h>

#include <vector>

#include "orvexa/cli/step_words.h"
#include "orvexa/cli/workflow_problems.h"
#include "orvexa/common/files.h"
#include "orvexa/common/text.h"

namespace orvexa::cli {

namespace {

common::Value steps_document(const auto& steps) {
  common::Value list = common::Value::array();
  for (const model::OperationConfig& step : steps) {
    list.push_back({{"step", list.size() + 1}, {"op", step.op}, {"params", step.params}});
  }
  return list;
}

}  // namespace

common::Value workflow_document(const std::string& file, const model::Workflow& workflow) {
  common::Value document = {{"file", common::path_text(file)},
                            {"title", workflow.title},
                            {"mask_operations", steps_document(workflow.mask_operations)},
                            {"result_operations", steps_document(workflow.result_operations)}};
  if (workflow.outputs) document["outputs"] = *workflow.outputs;
  document["problems"] = problems_document(model::check_workflow(workflow));
  return document;
}

std::string step_text(const model::OperationConfig& step) {
  const std::string params = parameter_words(step.params);
  return params.empty() ? step.op : step.op + " " + params;
}

void remark_problems(Console& console, const std::string& file, const model::Workflow& workflow) {
  for (const model::WorkflowProblem& problem : model::check_workflow(workflow)) {
    console.remark(problem_sentence(common::path_text(file), problem));
  }
}

int answer_edited(Console& console, const std::string& file, const model::Workflow& workflow, const std::string& line) {
  if (console.json) {
    console.answer_json(workflow_document(file, workflow));
    return exit_done;
  }
  if (!console.quiet) console.answer(common::visible_text(line) + "\n");
  remark_problems(console, file, workflow);
  return exit_done;
}

}  // namespace orvexa::cli
