#pragma once

namespace orvexa::ui {

/// The whole program: reads the arguments, shows the window and runs until it is closed.
/// @return the exit code: 0, or 2 for wrong usage.
int run_desktop(int argument_count, char** arguments);

}  // namespace orvexa::ui
