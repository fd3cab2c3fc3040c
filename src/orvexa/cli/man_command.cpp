#include <vector>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/man_page.h"
#include "orvexa/controller/controller.h"

namespace orvexa::cli {

namespace {

int man_command(Console& console, const GivenWords&) {
  const controller::Controller controller;
  std::vector<ListedOperation> masks;
  for (const model::MaskOperationInfo* info : controller.get_mask_operation_infos()) {
    masks.push_back({.key = info->key, .summary = info->summary});
  }
  std::vector<ListedOperation> results;
  for (const auto& [key, info] : controller.get_available_result_operations()) {
    results.push_back({.key = key, .summary = info->summary});
  }
  const std::string page = man_page(all_commands(), masks, results);
  if (console.json) {
    console.answer_json({{"page", page}});
  } else {
    console.answer(page);
  }
  return exit_done;
}

}  // namespace

const CommandInfo& man_command_info() {
  static const CommandInfo info{.name = "man",
                                .summary = "Print the man page orvexa(1)",
                                .remarks = "An installation brings it along, for: man orvexa\n",
                                .examples = {"orvexa man > orvexa.1"},
                                .run = man_command};
  return info;
}

}  // namespace orvexa::cli
