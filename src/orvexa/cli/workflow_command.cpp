#include "orvexa/cli/commands.h"

namespace orvexa::cli {

const CommandInfo& workflow_command_info() {
  static const CommandInfo info{
      .name = "workflow", .summary = "Look after workflow files", .examples = {"orvexa workflow check leaves.yaml"}};
  return info;
}

}  // namespace orvexa::cli
