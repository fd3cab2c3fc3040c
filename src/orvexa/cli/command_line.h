#pragma once

namespace orvexa::cli {

/// The `orvexa` command.
/// @return its exit code: 0 all done; 1 failed, or some operations failed; 2 wrong usage; 3 nothing of a batch
/// succeeded; 130 interrupted.
int run_command_line(int argc, char** argv);

}  // namespace orvexa::cli
