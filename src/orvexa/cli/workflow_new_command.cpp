#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/session.h"
#include "orvexa/cli/workflow_document.h"
#include "orvexa/common/files.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"

namespace orvexa::cli {

namespace {

namespace fs = std::filesystem;

common::Value names_between_commas(std::string_view text) {
  common::Value names = common::Value::array();
  while (true) {
    const std::size_t comma = text.find(',');
    names.push_back(std::string(common::trimmed(text.substr(0, comma))));
    if (comma == std::string_view::npos) return names;
    text.remove_prefix(comma + 1);
  }
}

int workflow_new_command(Console& console, const GivenWords& given) {
  const std::string& file = given.text("FILE");
  const std::string name = common::path_text(file);
  std::error_code unknown;
  if (!given.flag("--force") && fs::exists(fs::symlink_status(file, unknown))) {
    throw std::runtime_error(name + ": it is there already; --force replaces it.");
  }
  controller::Controller controller;
  const std::string title = given.has("--title") ? given.text("--title") : common::path_text(fs::path(file).stem());
  const auto workflow = controller.new_empty_workflow(common::to_valid_utf8(title));
  if (given.has("--outputs")) workflow->outputs = names_between_commas(given.text("--outputs"));
  for (const model::WorkflowProblem& problem : model::check_workflow(*workflow)) throw UsageError(problem.text);
  save_workflow(controller, file);
  if (console.json) {
    console.answer_json(workflow_document(file, *workflow));
  } else if (!console.quiet) {
    console.answer(fmt::format("{}: a new workflow without steps, \"{}\".\n", common::visible_text(name),
                               common::visible_text(workflow->title)));
  }
  return exit_done;
}

}  // namespace

const CommandInfo& workflow_new_command_info() {
  static const CommandInfo info{
      .name = "workflow new",
      .summary = "Make a workflow file without steps",
      .arguments = {{.name = "FILE", .help = "The file to make, such as leaves.yaml", .kind = WordKind::file}},
      .options = {{.name = "--title",
                   .value = "TEXT",
                   .help = "The workflow's title; by default the file's name",
                   .may_be_empty = true},
                  {.name = "--outputs",
                   .value = "LIST",
                   .help = "What a run writes, among masks,overlays,images,numbers; by default all of them"},
                  {.name = "--force", .help = "Replace a file that is there already"}},
      .remarks = "orvexa workflow add puts steps into it.\n",
      .examples = {"orvexa workflow new leaves.yaml --title \"Leaves on a tray\""},
      .run = workflow_new_command};
  return info;
}

}  // namespace orvexa::cli
