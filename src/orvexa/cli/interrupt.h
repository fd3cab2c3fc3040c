#pragma once

#include <string>

#include "orvexa/cli/console.h"
#include "orvexa/common/cancel.h"

namespace orvexa::cli {

/// From now on SIGINT and SIGTERM set `interrupt_event()`, so that the running work ends cleanly; a second one ends the
/// process at once with exit code 130. A signal that the caller had ignored (nohup, a background job of a script)
/// stays ignored.
void handle_interrupts();

[[nodiscard]] const common::CancelEvent& interrupt_event();

/// Says what an interrupted command did not do, as {"error", "interrupted": true} with --json too.
/// @return its exit code.
[[nodiscard]] int answer_interrupted(Console& console, const std::string& sentence);

}  // namespace orvexa::cli
