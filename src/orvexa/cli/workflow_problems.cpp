#include "orvexa/cli/workflow_problems.h"

#include <fmt/format.h>

#include <stdexcept>

#include "orvexa/common/files.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"

namespace orvexa::cli {

std::vector<model::WorkflowProblem> workflow_problems(const std::filesystem::path& file) {
  // A controller of its own, so that looking at a file changes nothing of what the caller has loaded.
  controller::Controller controller;
  try {
    return model::check_workflow(*controller.import_workflow_yaml(file));
  } catch (const std::exception& failure) {
    // A failure to read the file names it; one about what a workflow is does not.
    const std::string text = failure.what();
    if (text.starts_with(common::path_text(file))) throw;
    throw std::runtime_error(fmt::format("{}: {}", common::path_text(file), text));
  }
}

std::string problem_sentence(const std::string& file, const model::WorkflowProblem& problem) {
  return fmt::format("{}: {}: {}", file, problem.step, problem.text);
}

common::Value problems_document(const std::vector<model::WorkflowProblem>& problems) {
  common::Value list = common::Value::array();
  for (const model::WorkflowProblem& problem : problems) {
    list.push_back({{"step", common::to_valid_utf8(problem.step)}, {"text", common::to_valid_utf8(problem.text)}});
  }
  return list;
}

}  // namespace orvexa::cli
