#pragma once

#include "orvexa/common/cancel.h"

namespace orvexa::cli {

/// From now on SIGINT and SIGTERM set `interrupt_event()`, so that the running work ends cleanly; a second one ends the
/// process at once with exit code 130. A signal that the caller had ignored (nohup, a background job of a script)
/// stays ignored.
void handle_interrupts();

[[nodiscard]] const common::CancelEvent& interrupt_event();

}  // namespace orvexa::cli
