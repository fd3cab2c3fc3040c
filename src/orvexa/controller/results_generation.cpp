#include <fmt/format.h>

#include <utility>

#include "orvexa/common/clock.h"
#include "orvexa/common/files.h"
#include "orvexa/common/logger.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"
#include "orvexa/controller/numerical_results.h"
#include "orvexa/model/failure_text.h"

namespace orvexa::controller {

using common::logger;
using model::failure_text;

bool Controller::generate_results_v2(const std::string& save_folder, const model::ProgressCallback& progress_cb,
                                     const common::CancelEvent* cancel_event) {
  logger.info("=== STARTING RESULTS GENERATION V2 ===");
  logger.info("Save folder: " + save_folder);
  const auto capture = state.current_capture;
  if (!capture) {
    logger.error("No capture data loaded");
    return false;
  }
  const auto workflow = state.current_workflow;
  if (!workflow) {
    logger.error("No workflow loaded");
    return false;
  }
  logger.info(fmt::format("Executing workflow with {} mask operations and {} result operations",
                          workflow->mask_operations.size(), workflow->result_operations.size()));
  try {
    model::RunOutput output = executor->run_and_save({.capture = capture,
                                                      .wf = workflow,
                                                      .output_base_dir = save_folder,
                                                      .capture_name = capture->name,
                                                      .progress_cb = progress_cb,
                                                      .cancel_event = cancel_event});
    state.last_results = std::move(output.bundle.results);
    state.last_mask_notes = std::move(output.mask_notes);
    state.last_saved_results_folder = output.results_folder.string();
    state.error.reset();
    logger.info("=== RESULTS GENERATION V2 COMPLETED ===");
    logger.info("Results saved to: " + common::path_text(output.results_folder));
    return true;
  } catch (...) {
    const std::string reason = failure_text();
    if (common::to_lower_ascii(reason).find("cancelled by user") != std::string::npos) {
      logger.info("Controller.generate_results_v2: Operation cancelled by user");
    } else {
      logger.exception(fmt::format("Controller.generate_results_v2: Error generating results - {} ", reason));
      state.error = "Results generation failed: " + reason;
    }
    return false;
  }
}

std::shared_ptr<model::Workflow> Controller::_prepare_workflow_for_execution(
    const model::Workflow& base_workflow, const std::vector<std::string>& operation_keys) const {
  auto workflow = std::make_shared<model::Workflow>(base_workflow);
  workflow->result_operations.clear();
  if (operation_keys.empty()) {
    logger.info("No operations selected - workflow will only apply masks");
    return workflow;
  }
  Value created = Value::array();
  for (const std::string& key : operation_keys) {
    workflow->result_operations.push_back(model::result_op(key));
    created.push_back(workflow->result_operations.back().op);
  }
  logger.info(fmt::format("Controller: Created {} result operations from {} selected keys",
                          workflow->result_operations.size(), operation_keys.size()));
  logger.debug("Controller: Selected operation keys: " + common::scalar_text(Value(operation_keys)));
  logger.debug("Controller: Created result operations: " + common::scalar_text(created));
  return workflow;
}

void Controller::_save_numerical_results_to_txt(const model::ResultMap& results, const Path& file_path,
                                                const std::string& capture_name) const {
  common::write_file_atomically(file_path, numerical_results_text(results, capture_name, common::now()));
}

}  // namespace orvexa::controller
