#include "orvexa/controller/state.h"

namespace orvexa::controller {

namespace {

Phase phase_of(const AppState& state) {
  if (state.error) return Phase::ERROR;
  if (state.watcher_running) return Phase::WATCHING;
  if (state.last_results) return Phase::RESULTS_READY;
  if (!state.current_capture) return Phase::EMPTY;
  const model::Workflow* workflow = state.current_workflow.get();
  const bool has_step =
      workflow != nullptr && (!workflow->mask_operations.empty() || !workflow->result_operations.empty());
  return has_step ? Phase::WORKFLOW_READY : Phase::CAPTURE_LOADED;
}

}  // namespace

void AppState::derive_phase() {
  phase = phase_of(*this);
}

void AppState::reset_system_state() {
  current_folder.reset();
  current_file.reset();
  current_capture.reset();
  pipeline_step.reset();
  preview_step_index.reset();
  current_mask_operation.reset();
  mask_operation_params = common::Value::object();
  preview_mask.reset();
  preview_mask_images.reset();
  show_mask_preview = false;
  last_mask.reset();
  last_results.reset();
  last_mask_notes.clear();
  last_saved_results_folder.reset();
  selected_image_context.reset();
  selected_image_name.reset();
}

}  // namespace orvexa::controller
