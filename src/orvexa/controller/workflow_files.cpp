#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "orvexa/common/files.h"
#include "orvexa/common/logger.h"
#include "orvexa/common/serialisation.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/model/workflow/parameter_files.h"

namespace orvexa::controller {

using common::logger;
using common::path_text;
using model::failure_text;

namespace {

/// Absolute, so that it stays the same folder when the current one changes.
Path folder_of(const Path& file) {
  std::error_code unknown;
  const Path absolute = std::filesystem::absolute(file, unknown);
  return (unknown ? file : absolute).parent_path();
}

}  // namespace

std::shared_ptr<model::Workflow> Controller::new_empty_workflow(const std::string& title) {
  auto workflow = model::new_workflow(title);
  set_workflow(workflow);
  return workflow;
}

void Controller::set_workflow(const std::shared_ptr<model::Workflow>& workflow) {
  if (!workflow) throw std::invalid_argument("There is no workflow to make the current one.");
  state.current_workflow = workflow;
  _mask_result_cache.clear();
  if (state.current_capture) {
    if (auto available = _get_available_op_keys(*workflow)) state.enabled_operations_cache = *std::move(available);
  }
  state.error.reset();
  state.derive_phase();
}

void Controller::clear_workflow() {
  if (!state.current_workflow) return;
  state.current_workflow.reset();
  state.message = "Workflow cleared";
  refresh_all_panels();
}

bool Controller::save_workflow_to_file(const Path& file_path) {
  if (!state.current_workflow) {
    state.error = "No workflow to save";
    return false;
  }
  try {
    common::save_yaml(file_path, model::moved_to(*state.current_workflow, file_path.parent_path()).to_dict());
    state.message = "Workflow saved to " + path_text(file_path.filename());
    return true;
  } catch (...) {
    state.error = "Failed to save workflow: " + failure_text();
    return false;
  }
}

bool Controller::load_workflow_from_file(const Path& file_path) {
  try {
    // The old masks go before the file is read, so that nobody takes them for the new workflow's when it cannot be.
    if (state.current_workflow) {
      logger.info("load_workflow_from_file: Clearing existing workflow and masks before loading");
      state.current_workflow->mask_operations.clear();
    }
    clear_intermediate_results_cache();
    const Value data = common::load_yaml(file_path);
    auto workflow = std::make_shared<model::Workflow>(data);
    workflow->folder = folder_of(file_path);
    set_workflow(workflow);
    state.message = "Workflow loaded from " + path_text(file_path.filename());
    return true;
  } catch (...) {
    state.error = "Failed to load workflow: " + failure_text();
  }
  refresh_all_panels();
  return false;
}

void Controller::export_workflow_yaml(const Path& file_path) {
  const auto workflow = _wf();
  common::save_yaml(file_path, model::moved_to(*workflow, file_path.parent_path()).to_dict());
  state.message = "Exported " + path_text(file_path.filename());
}

std::shared_ptr<model::Workflow> Controller::import_workflow_yaml(const Path& file_path) {
  const Value data = common::load_yaml(file_path);
  auto workflow = std::make_shared<model::Workflow>(model::Workflow::from_dict(data));
  workflow->folder = folder_of(file_path);
  set_workflow(workflow);
  return workflow;
}

}  // namespace orvexa::controller
