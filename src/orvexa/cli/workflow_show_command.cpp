#include <fmt/format.h>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/session.h"
#include "orvexa/cli/step_words.h"
#include "orvexa/cli/workflow_document.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"

namespace orvexa::cli {

namespace {

std::string list_text(const char* title, const common::Value& steps) {
  if (steps.empty()) return fmt::format("\n{}\n  none\n", title);
  TextTable table({true});
  for (const common::Value& step : steps) {
    table.add({fmt::format("{}", step.at("step").get<int>()), common::visible_text(step.at("op").get<std::string>()),
               common::visible_text(parameter_words(step.at("params")))});
  }
  return fmt::format("\n{}\n{}", title, table.text(2));
}

int workflow_show_command(Console& console, const GivenWords& given) {
  const std::string& file = given.text("FILE");
  controller::Controller controller;
  const auto workflow = import_workflow(controller, file);
  const common::Value document = workflow_document(file, *workflow);
  if (console.json) {
    console.answer_json(document);
    return exit_done;
  }
  std::string text = common::visible_text(workflow->title) + "\n";
  text += list_text("Mask steps", document.at("mask_operations"));
  text += list_text("Result operations", document.at("result_operations"));
  if (workflow->outputs) {
    text += "\nOutputs\n  " + common::visible_text(value_word(*workflow->outputs)) + "\n";
  }
  console.answer(text);
  remark_problems(console, file, *workflow);
  return exit_done;
}

}  // namespace

const CommandInfo& workflow_show_command_info() {
  static const CommandInfo info{
      .name = "workflow show",
      .summary = "Show the steps of a workflow in order, with their parameters",
      .arguments = {{.name = "FILE", .help = "A workflow file", .kind = WordKind::file}},
      .remarks =
          "Steps are counted from 1. Parameters that are not shown have their defaults; orvexa ops KEY lists them.\n",
      .examples = {"orvexa workflow show leaves.yaml"},
      .run = workflow_show_command};
  return info;
}

}  // namespace orvexa::cli
