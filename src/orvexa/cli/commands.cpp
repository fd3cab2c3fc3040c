#include "orvexa/cli/commands.h"

#include <array>

namespace orvexa::cli {

std::span<const CommandInfo* const> all_commands() {
  // A command a line.
  // clang-format off
  static const std::array all{
      &run_command_info(),
      &batch_command_info(),
      &watch_command_info(),
      &preview_command_info(),
      &info_command_info(),
      &ops_command_info(),
      &workflow_command_info(),
      &workflow_new_command_info(),
      &workflow_add_command_info(),
      &workflow_remove_command_info(),
      &workflow_show_command_info(),
      &workflow_check_command_info(),
      &verify_command_info(),
      &sample_command_info(),
      &completion_command_info(),
      &man_command_info(),
  };
  // clang-format on
  return all;
}

}  // namespace orvexa::cli
