#include "orvexa/cli/workflow_problems.h"

#include <fmt/format.h>

#include <stdexcept>

#include "orvexa/cli/session.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"

namespace orvexa::cli {

std::vector<model::WorkflowProblem> workflow_problems(const std::filesystem::path& file) {
  // A controller of its own, so that looking at a file changes nothing of what the caller has loaded.
  controller::Controller controller;
  return model::check_workflow(*import_workflow(controller, file));
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

namespace {

bool is_named_like_a_capture(const std::filesystem::path& file) {
  return model::is_image_file_name(file) || common::to_lower_ascii(file.extension().string()) == ".inf";
}

/// A capture in place of the workflow is no workflow: the arguments were swapped.
std::vector<model::WorkflowProblem> problems_of_first_argument(const std::filesystem::path& file) try {
  return workflow_problems(file);
} catch (const std::exception& failure) {
  if (!is_named_like_a_capture(file)) throw;
  throw std::runtime_error(fmt::format("{} The workflow is given first, then what it runs on.", failure.what()));
}

}  // namespace

bool is_fit_to_run(Console& console, const std::filesystem::path& file) {
  const std::vector<model::WorkflowProblem> problems = problems_of_first_argument(file);
  if (problems.empty()) return true;
  const std::string name = common::path_text(file);
  for (const model::WorkflowProblem& problem : problems) console.error(problem_sentence(name, problem));
  if (console.json) {
    console.answer_json({{"error", name + ": the workflow cannot run."}, {"problems", problems_document(problems)}});
  }
  return false;
}

}  // namespace orvexa::cli
