#pragma once

#include <filesystem>
#include <memory>

#include "orvexa/controller/controller.h"

namespace orvexa::cli {

/// The controller's own operations, with what they report in its state turned into an exception.
/// @throws std::runtime_error with `state.error`.
void load_workflow(controller::Controller& controller, const std::filesystem::path& file);
/// Without anything else that loading does; what is wrong with the steps is not looked at.
/// @throws std::exception with a sentence that names the file when it is not a workflow at all.
std::shared_ptr<model::Workflow> import_workflow(controller::Controller& controller, const std::filesystem::path& file);
void save_workflow(controller::Controller& controller, const std::filesystem::path& file);
void load_capture(controller::Controller& controller, const std::filesystem::path& file);

}  // namespace orvexa::cli
