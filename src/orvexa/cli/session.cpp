#include "orvexa/cli/session.h"

#include <stdexcept>

namespace orvexa::cli {

void load_workflow(controller::Controller& controller, const std::filesystem::path& file) {
  if (!controller.load_workflow_from_file(file)) throw std::runtime_error(controller.state.error.value());
}

void load_capture(controller::Controller& controller, const std::filesystem::path& file) {
  controller.load_capture_from_file(file);
  if (!controller.state.current_capture) throw std::runtime_error(controller.state.error.value());
}

}  // namespace orvexa::cli
