#pragma once

#include <span>

#include "orvexa/cli/command_info.h"

namespace orvexa::cli {

// A command is described and carried out in the file of its name.

const CommandInfo& batch_command_info();
const CommandInfo& completion_command_info();
const CommandInfo& info_command_info();
const CommandInfo& man_command_info();
const CommandInfo& ops_command_info();
const CommandInfo& preview_command_info();
const CommandInfo& run_command_info();
const CommandInfo& sample_command_info();
const CommandInfo& verify_command_info();
const CommandInfo& watch_command_info();
const CommandInfo& workflow_command_info();
const CommandInfo& workflow_add_command_info();
const CommandInfo& workflow_check_command_info();
const CommandInfo& workflow_new_command_info();
const CommandInfo& workflow_remove_command_info();
const CommandInfo& workflow_show_command_info();

/// Every command, in the order of help, man page and completion; a group stands before its commands.
[[nodiscard]] std::span<const CommandInfo* const> all_commands();

}  // namespace orvexa::cli
