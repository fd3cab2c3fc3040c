#include "orvexa/cli/run_part.h"

#include <fmt/format.h>

#include <stdexcept>

#include "orvexa/cli/interrupt.h"
#include "orvexa/cli/mask_text.h"
#include "orvexa/cli/session.h"
#include "orvexa/common/files.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/intermediate_files.h"

namespace orvexa::cli {

namespace {

/// The number that an option gives, counted from 1.
int step_number(const GivenWords& given, const char* option, std::size_t count, const char* kind) {
  const std::string workflow = common::path_text(given.text("WORKFLOW"));
  if (count == 0) throw UsageError(fmt::format("{}: {} has no {}s.", option, workflow, kind));
  try {
    return given.whole_number(option, 1, 1, static_cast<int>(count));
  } catch (const UsageError&) {
    const std::string wanted = count == 1 ? "1" : fmt::format("a whole number from 1 to {}", count);
    throw UsageError(fmt::format("{} is \"{}\"; {} is expected, because {} has {} {}{}.", option, given.text(option),
                                 wanted, workflow, count, kind, count == 1 ? "" : "s"));
  }
}

model::RunContext context() {
  return {.cancel_event = &interrupt_event(), .progress = {}};
}

}  // namespace

void expect_one_part(const GivenWords& given) {
  if (given.has("--step") && given.has("--operation")) {
    throw UsageError("--step and --operation cannot be given together; each is a run of its own.");
  }
}

int run_step(Console& console, controller::Controller& controller, const GivenWords& given) {
  const auto workflow = controller._wf();
  const int number = step_number(given, "--step", workflow->mask_operations.size(), "mask step");
  const std::string capture = controller._cap()->name;
  console.progress(fmt::format("Mask steps 1 to {}", number));
  const LoggedFailure failure;
  const auto found = controller.generate_mask_intermediate_results(number - 1, &interrupt_event());
  if (!found) {
    context().check();
    throw std::runtime_error(failure.cause());
  }
  const std::string folder = common::path_text(controller::save_mask_intermediate(
      {.output_base_dir = given.text("--output"), .capture_name = capture, .number = number}, *found, context()));
  console.end_progress();
  if (console.json) {
    common::Value document = {{"capture", common::to_valid_utf8(capture)},
                              {"step", number},
                              {"op", found->mask_operation.op},
                              {"params", found->mask_operation.params}};
    document.update(mask_document(found->mask));
    document["results_folder"] = folder;
    console.answer_json(document);
  } else if (console.quiet) {
    console.answer(folder + "\n");
  } else {
    console.answer(fmt::format("{}, after mask step {} ({}): {}\nResults: {}\n", common::visible_text(capture), number,
                               common::visible_text(found->mask_operation.op), mask_text(found->mask), folder));
  }
  return exit_done;
}

int run_operation(Console& console, controller::Controller& controller, const GivenWords& given) {
  const auto workflow = controller._wf();
  const int number = step_number(given, "--operation", workflow->result_operations.size(), "result operation");
  const std::string capture = controller._cap()->name;
  const std::string& op = workflow->result_operations[static_cast<std::size_t>(number - 1)].op;
  console.progress(fmt::format("Result operation {}: {}", number, op));
  const LoggedFailure failure;
  const auto found = controller.generate_operation_intermediate_results(number - 1, &interrupt_event());
  if (!found) {
    context().check();
    throw std::runtime_error(failure.cause());
  }
  const std::string folder = common::path_text(controller::save_operation_intermediate(
      {.output_base_dir = given.text("--output"), .capture_name = capture, .number = number}, *found, context()));
  console.end_progress();
  model::ResultMap results;
  results.insert({op, found->operation_result});
  if (console.json) {
    console.answer_json({{"capture", common::to_valid_utf8(capture)},
                         {"operation", number},
                         {"results_folder", folder},
                         {"results", results_document(results)}});
  } else if (console.quiet) {
    console.answer(folder + "\n");
  } else {
    console.answer(fmt::format("{}, over the whole mask:\n\n{}\nResults: {}\n", common::visible_text(capture),
                               results_text(results), folder));
  }
  return exit_done;
}

}  // namespace orvexa::cli
