#include "orvexa/cli/commands.h"

#include <array>

namespace orvexa::cli {

std::span<const CommandInfo* const> all_commands() {
  static const std::array all{
      &run_command_info(),      &info_command_info(),           &ops_command_info(),
      &workflow_command_info(), &workflow_check_command_info(), &sample_command_info(),
  };
  return all;
}

}  // namespace orvexa::cli
