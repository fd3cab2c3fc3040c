#include <fmt/format.h>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/workflow_problems.h"
#include "orvexa/common/files.h"
#include "orvexa/common/text.h"

namespace orvexa::cli {

namespace {

int workflow_check_command(Console& console, const GivenWords& given) {
  bool is_all_well = true;
  common::Value list = common::Value::array();
  for (const std::string& file : given.texts("FILE")) {
    const std::string name = common::path_text(file);
    common::Value entry = {{"file", name}, {"problems", common::Value::array()}};
    try {
      const std::vector<model::WorkflowProblem> problems = workflow_problems(file);
      entry["problems"] = problems_document(problems);
      is_all_well = is_all_well && problems.empty();
      if (!console.json) {
        std::string text =
            problems.empty() ? fmt::format("{}: nothing is wrong with it.\n", common::visible_text(name)) : "";
        for (const model::WorkflowProblem& problem : problems) {
          text += common::visible_text(problem_sentence(name, problem)) + "\n";
        }
        console.answer(text);
      }
    } catch (const std::exception& failure) {
      // One unreadable file does not keep the others from being checked.
      console.error(failure.what());
      entry["error"] = common::to_valid_utf8(failure.what());
      is_all_well = false;
    }
    list.push_back(std::move(entry));
  }
  if (console.json) console.answer_json({{"ok", is_all_well}, {"files", std::move(list)}});
  return is_all_well ? exit_done : exit_failed;
}

}  // namespace

const CommandInfo& workflow_check_command_info() {
  static const CommandInfo info{
      .name = "workflow check",
      .summary = "List what is wrong with workflow files, by step",
      .arguments = {{.name = "FILE", .help = "Workflow files", .kind = WordKind::file, .repeats = true}},
      .remarks = "Exit codes: 0 nothing is wrong with any of them; 1 something is.\n",
      .examples = {"orvexa workflow check leaves.yaml discs.yaml"},
      .run = workflow_check_command};
  return info;
}

}  // namespace orvexa::cli
