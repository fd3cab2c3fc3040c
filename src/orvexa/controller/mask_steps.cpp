#include <fmt/format.h>

#include <stdexcept>
#include <utility>

#include "orvexa/common/logger.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/model/mask_operations/registry.h"

namespace orvexa::controller {

using common::logger;
using model::failure_text;

void Controller::add_mask_op(const std::string& op_name, const Value& params) {
  _wf()->mask_operations.push_back(model::mask_op(op_name, params));
}

void Controller::update_mask_param(int index, const std::string& key, const Value& value) {
  const auto workflow = _wf();
  model::MaskOperationConfig& step = workflow->mask_operations.at(static_cast<std::size_t>(index));
  if (!step.params.is_object() && !step.params.is_null()) {
    throw std::invalid_argument(fmt::format("The parameters of mask step {} ({}) are not a map.", index, step.op));
  }
  step.params[key] = value;
}

std::shared_ptr<model::CaptureSet> Controller::apply_mask_to_workflow(const std::string& operation_name,
                                                                      const Value& params) {
  const auto capture = state.current_capture;
  logger.info("Applying mask operation to workflow: " + operation_name);
  logger.info("CAPTURE DEBUG: During mask application - Capture object ID: " +
              (capture ? fmt::format("{}", fmt::ptr(capture)) : std::string("None")));
  try {
    // Within the guard: parameters that nest too deeply have no text.
    logger.debug(fmt::format("Controller.apply_mask_to_workflow: Applying {} with params {}", operation_name,
                             common::scalar_text(params)));
    const model::MaskOperationInfo& mask_op_class = model::get_mask_operation(operation_name);
    const std::string& display_name = mask_op_class.get_display_name();
    const Value validated = mask_op_class()->validate_params(params);

    std::shared_ptr<model::CaptureSet> masked_capture;
    if (capture) {
      const int existing_count =
          state.current_workflow ? static_cast<int>(state.current_workflow->mask_operations.size()) : 0;
      const auto input_capture = existing_count > 0 ? get_mask_result(existing_count - 1) : capture;
      if (!input_capture) {
        throw std::runtime_error(fmt::format("Could not resolve the existing mask chain (index {}) before adding '{}'",
                                             existing_count - 1, display_name));
      }
      const model::MaskOperationConfig new_config = model::mask_op(operation_name, validated);
      masked_capture = _compute_mask_step(existing_count, *input_capture, new_config);
    }

    const bool is_workflow_new = !state.current_workflow;
    if (is_workflow_new) {
      logger.debug("Controller.apply_mask_to_workflow: Creating new workflow");
      new_empty_workflow("Auto-Generated Workflow");
    }
    add_mask_op(operation_name, validated);
    if (masked_capture) {
      const int last_index = static_cast<int>(state.current_workflow->mask_operations.size()) - 1;
      _mask_result_cache[last_index] = masked_capture;
    }
    const std::string message = is_workflow_new ? fmt::format("Created new workflow and added '{}' mask", display_name)
                                                : fmt::format("Added '{}' mask to workflow", display_name);
    state.message = message;
    logger.info(message);
    handle_mask_dependencies();
    return masked_capture;
  } catch (...) {
    const std::string reason = failure_text();
    logger.error("Controller.apply_mask_to_workflow: Failed to add mask to workflow - " + reason);
    state.error = "Failed to add mask to workflow: " + reason;
    return nullptr;
  }
}

void Controller::_prepare_mask_step(const std::string& operation_name, const Value& params,
                                    const common::CancelEvent* cancel_event) {
  _prepared_step.reset();
  const auto capture = state.current_capture;
  if (!capture) return;
  PreparedStep step;
  try {
    step.mask_op_config =
        model::mask_op(operation_name, model::get_mask_operation(operation_name)()->validate_params(params));
  } catch (const std::exception&) {
    return;  // applying it says what is wrong, without any work
  }
  const int existing_count =
      state.current_workflow ? static_cast<int>(state.current_workflow->mask_operations.size()) : 0;
  step.input_capture = existing_count > 0 ? get_mask_result(existing_count - 1, cancel_event) : capture;
  if (!step.input_capture) return;
  try {
    step.new_capture = _compute_mask_step(existing_count, *step.input_capture, step.mask_op_config, cancel_event);
  } catch (const model::CancelledError&) {
    throw;
  } catch (...) {
    step.failure = std::current_exception();
  }
  _prepared_step = std::move(step);
}

bool Controller::remove_mask_from_workflow(int mask_index) {
  try {
    const auto workflow = state.current_workflow;
    if (!workflow) {
      logger.warning("Controller.remove_mask_from_workflow: No workflow available");
      return false;
    }
    if (mask_index < 0 || std::cmp_greater_equal(mask_index, workflow->mask_operations.size())) {
      logger.error(fmt::format("Controller.remove_mask_from_workflow: Invalid mask index {}", mask_index));
      return false;
    }
    const auto step = workflow->mask_operations.begin() + mask_index;
    const std::string op_name = step->op;
    workflow->mask_operations.erase(step);
    logger.info(
        fmt::format("Controller.remove_mask_from_workflow: Removed mask '{}' at index {}", op_name, mask_index));
    // The removed step's result and all later ones were made from inputs that no longer exist.
    _mask_result_cache.erase(_mask_result_cache.lower_bound(mask_index), _mask_result_cache.end());
    handle_mask_dependencies();
    events.mask_operation_removed.emit(mask_index);
    return true;
  } catch (...) {
    logger.error("Controller.remove_mask_from_workflow: Error removing mask - " + failure_text());
    return false;
  }
}

}  // namespace orvexa::controller
