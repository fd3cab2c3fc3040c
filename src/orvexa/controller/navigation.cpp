#include <fmt/format.h>

#include <utility>

#include "orvexa/common/logger.h"
#include "orvexa/controller/applied_masks.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/failure_text.h"

namespace orvexa::controller {

using common::logger;
using common::path_text;
using model::failure_text;

void Controller::reset_system_state() {
  logger.info("Controller.reset_system_state: Resetting system state...");
  if (state.current_capture) {
    if (const std::size_t count = applied_mask_count(*state.current_capture); count > 0) {
      logger.warning(
          fmt::format("MASK LOSS WARNING: reset_system_state() clearing capture with {} applied masks!", count));
    }
  }
  try {
    state.current_workflow.reset();
    state.current_capture.reset();
    _mask_result_cache.clear();
    state.pipeline_step.reset();
    state.preview_step_index.reset();
    state.current_mask_operation.reset();
    state.mask_operation_params = Value::object();
    state.preview_mask.reset();
    state.preview_mask_images.reset();
    state.show_mask_preview = false;
    state.last_mask.reset();
    state.last_results.reset();
    state.last_mask_notes.clear();
    state.last_saved_results_folder.reset();
    state.selected_image_context.reset();
    state.selected_image_name.reset();
    state.error.reset();
    state.message = "System state reset - ready for new file/folder";
    logger.info("Controller.reset_system_state: System state reset completed");
  } catch (...) {
    const std::string reason = failure_text();
    logger.error("Controller.reset_system_state: Error resetting state - " + reason);
    state.error = "Failed to reset system state: " + reason;
  }
}

void Controller::set_current_folder(const Path& folder) {
  Path chosen = folder;  // the argument may be the state's own folder, which the reset clears
  state.reset_system_state();
  const std::string message = "Folder set: " + path_text(chosen) + " \"No file selected\"";
  state.current_folder = std::move(chosen);
  state.current_file.reset();
  state.message = message;
  state.error.reset();
  state.derive_phase();
}

void Controller::set_current_file(const std::optional<Path>& file) {
  if (state.current_file && state.current_file != file) state.reset_system_state();
  state.current_file = file;
  state.message = file ? "File set: " + path_text(file->filename()) : "No file selected";
  state.error.reset();
  state.derive_phase();
}

void Controller::set_pipeline_step(std::optional<int> index) {
  logger.info("Controller.set_pipeline_step: Setting pipeline step to " + (index ? std::to_string(*index) : "None"));
  state.pipeline_step = index;
  refresh_only_status();
}

}  // namespace orvexa::controller
