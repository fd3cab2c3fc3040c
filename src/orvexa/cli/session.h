#pragma once

#include <filesystem>

#include "orvexa/controller/controller.h"

namespace orvexa::cli {

/// The controller's own operations, with what they report in its state turned into an exception.
/// @throws std::runtime_error with `state.error`.
void load_workflow(controller::Controller& controller, const std::filesystem::path& file);
void load_capture(controller::Controller& controller, const std::filesystem::path& file);

}  // namespace orvexa::cli
