#include "orvexa/cli/commands.h"

namespace orvexa::cli {

const CommandInfo& workflow_command_info() {
  static const CommandInfo info{
      .name = "workflow",
      .summary = "Make, edit and check workflow files",
      .examples = {"orvexa workflow new leaves.yaml", "orvexa workflow add leaves.yaml threshold_auto",
                   "orvexa workflow add leaves.yaml area", "orvexa workflow show leaves.yaml"}};
  return info;
}

}  // namespace orvexa::cli
