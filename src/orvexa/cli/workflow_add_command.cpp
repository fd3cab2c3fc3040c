#include <fmt/format.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <utility>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/session.h"
#include "orvexa/cli/step_words.h"
#include "orvexa/cli/workflow_document.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/workflow/parameter_files.h"

namespace orvexa::cli {

namespace {

/// @return the step's number, counted from 1 among the steps of its kind.
int insert_step(auto& steps, const auto& step, const GivenWords& given) {
  const int end = static_cast<int>(steps.size()) + 1;
  const int number = given.whole_number("--at", end, 1, end);
  steps.insert(steps.begin() + (number - 1), step);
  return number;
}

int workflow_add_command(Console& console, const GivenWords& given) {
  const std::string& file = given.text("FILE");
  controller::Controller controller;
  const NamedOperation operation = find_operation(controller, given.text("KEY"));
  const std::filesystem::path folder = std::filesystem::path(file).parent_path();
  const common::Value params =
      with_paths(operation, parameters_from_words(operation, given.texts("--param")),
                 [&](const std::string& path) { return model::path_in_workflow(path, folder); });
  const auto workflow = std::make_shared<model::Workflow>(*import_workflow(controller, file));

  const int number = operation.is_mask
                         ? insert_step(workflow->mask_operations, model::mask_op(operation.key, params), given)
                         : insert_step(workflow->result_operations, model::result_op(operation.key, params), given);
  for (const model::WorkflowProblem& problem : model::check_workflow(*workflow)) {
    const bool is_of_step = problem.place && problem.place->is_mask == operation.is_mask &&
                            std::cmp_equal(problem.place->index + 1, number);
    if (is_of_step) throw UsageError(problem.text);
  }
  controller.set_workflow(workflow);
  save_workflow(controller, file);
  const model::OperationConfig step{.op = operation.key, .params = params};
  return answer_edited(
      console, file, *workflow,
      fmt::format("{} {}: {}", operation.is_mask ? "Mask step" : "Result operation", number, step_text(step)));
}

}  // namespace

const CommandInfo& workflow_add_command_info() {
  static const CommandInfo info{
      .name = "workflow add",
      .summary = "Add a mask step or a result operation to a workflow file",
      .arguments = {{.name = "FILE", .help = "A workflow file", .kind = WordKind::file},
                    {.name = "KEY", .help = "The operation; orvexa ops lists them", .kind = WordKind::operation}},
      .options = {{.name = "--param",
                   .letter = "-p",
                   .value = "NAME=VALUE",
                   .help = "A parameter; may be given again. The others have their defaults",
                   .kind = WordKind::parameter,
                   .repeats = true},
                  {.name = "--at",
                   .value = "N",
                   .help = "Make it step N of its kind, counted from 1; by default the last one"}},
      .remarks =
          "A file that a parameter names is given like any other, relative to the current folder or absolute; the\n"
          "workflow has it relative to its own folder.\n"
          "A step that could not run is refused and the file stays as it was. The file is written anew: comments\n"
          "in it are not kept.\n",
      .examples = {"orvexa workflow add leaves.yaml threshold_index -p index=exg -p method=otsu",
                   "orvexa workflow add leaves.yaml roi_rect -p rect=0.5,0.5,0.8,0.8 --at 1",
                   "orvexa workflow add leaves.yaml area"},
      .run = workflow_add_command};
  return info;
}

}  // namespace orvexa::cli
