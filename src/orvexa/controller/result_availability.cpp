#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <utility>
#include <variant>

#include "orvexa/common/logger.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/failure_text.h"

namespace orvexa::controller {

using common::logger;
using model::failure_text;

namespace {

bool contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

std::optional<std::vector<std::string>> Controller::_get_available_op_keys(const model::Workflow& workflow) {
  try {
    const std::vector<std::string> current_measurements = _cap()->get_measurement_types();
    std::vector<std::string> workflow_mask_keys;
    for (const model::MaskOperationConfig& step : workflow.mask_operations) workflow_mask_keys.push_back(step.op);
    std::vector<std::string> available;
    for (const auto& [category, infos] : get_result_operations_by_category()) {
      for (const model::ResultOperationInfo* op_info : infos) {
        if (_check_measurement_requirements(*op_info, current_measurements) &&
            _check_mask_requirements(*op_info, workflow_mask_keys)) {
          available.push_back(op_info->key);
        }
      }
    }
    return available;
  } catch (...) {
    logger.error("_get_available_op_keys: Error getting measurements - " + failure_text());
    return std::nullopt;
  }
}

bool Controller::_check_measurement_requirements(const model::ResultOperationInfo& op_info,
                                                 const std::vector<std::string>& current_measurements) const {
  if (!op_info.required_measurements || op_info.required_measurements->empty()) return true;
  if (current_measurements.empty()) return false;
  const std::vector<model::MeasurementRequirement>& required = *op_info.required_measurements;
  if (const auto* alternatives = std::get_if<std::vector<std::string>>(&required.front())) {
    return std::any_of(alternatives->begin(), alternatives->end(),
                       [&](const std::string& name) { return contains(current_measurements, name); });
  }
  return std::all_of(required.begin(), required.end(), [&](const model::MeasurementRequirement& requirement) {
    const auto* name = std::get_if<std::string>(&requirement);
    return name != nullptr && contains(current_measurements, *name);
  });
}

bool Controller::_check_mask_requirements(const model::ResultOperationInfo& op_info,
                                          const std::vector<std::string>& workflow_mask_keys) const {
  const auto& required = op_info.operation_class._requires_mask_operation;
  if (!required || required->empty()) return true;
  return std::any_of(required->begin(), required->end(), [&](const std::string& pattern) {
    return std::any_of(workflow_mask_keys.begin(), workflow_mask_keys.end(),
                       [&](const std::string& key) { return common::fnmatch(key, pattern) || key == pattern; });
  });
}

void Controller::handle_mask_dependencies() {
  const auto workflow = state.current_workflow;
  if (!workflow || !state.current_capture) {
    logger.debug("handle_mask_dependencies: No workflow or capture, skipping");
    return;
  }
  const auto available = _get_available_op_keys(*workflow);
  if (!available) return;

  const std::set<std::string> previously_available(state.enabled_operations_cache.begin(),
                                                   state.enabled_operations_cache.end());
  common::OrderedMap<model::ResultOperationConfig> existing;
  for (const model::ResultOperationConfig& entry : workflow->result_operations) {
    existing.insert_or_assign(entry.op, entry);
  }

  std::vector<model::ResultOperationConfig> updated;
  for (const std::string& key : *available) {
    if (const auto found = existing.find(key); found != existing.end()) {
      updated.push_back(found->second);
    } else if (!previously_available.contains(key)) {
      Value defaults = Value::object();
      try {
        const model::ResultOperationInfo* info = get_result_operation_info(key);
        if (info != nullptr && !info->parameters.empty()) {
          defaults = model::default_parameters(info->parameters);
          logger.debug(
              fmt::format("Auto-added newly available operation {} with {} default parameters", key, defaults.size()));
        } else {
          logger.debug(fmt::format("Auto-added newly available operation {} with no parameters", key));
        }
      } catch (...) {
        logger.warning(fmt::format("Could not get default parameters for {}: {}", key, failure_text()));
      }
      updated.push_back({{.op = key, .params = std::move(defaults)}});
    }
    // Otherwise it was available before and the user left it out: it stays out.
  }

  std::vector<std::string> available_once;
  for (const std::string& key : *available) {
    if (!contains(available_once, key)) available_once.push_back(key);
  }
  state.enabled_operations_cache = std::move(available_once);

  std::set<std::string> updated_keys;
  for (const model::ResultOperationConfig& entry : updated) updated_keys.insert(entry.op);
  std::set<std::string> existing_keys;
  for (const auto& [key, entry] : existing) existing_keys.insert(key);
  if (updated_keys == existing_keys) {
    logger.debug(fmt::format("No change in workflow result operations ({} enabled)", updated.size()));
    return;
  }
  const std::size_t count = updated.size();
  workflow->result_operations = std::move(updated);
  logger.info(fmt::format("Updated workflow result operations: {} enabled (was {})", count, existing_keys.size()));
  events.workflow_result_operations_changed.emit();
}

void Controller::sync_result_operations_to_workflow(const std::vector<std::string>& operation_keys) {
  try {
    const auto workflow = _wf();
    common::OrderedMap<model::ResultOperationConfig> saved;
    for (const model::ResultOperationConfig& entry : workflow->result_operations) {
      saved.insert_or_assign(entry.op, entry);
    }
    workflow->result_operations.clear();
    for (const std::string& key : operation_keys) {
      if (const auto found = saved.find(key); found != saved.end()) {
        workflow->result_operations.push_back(found->second);
        continue;
      }
      Value defaults = Value::object();
      try {
        const model::ResultOperationInfo* info = get_result_operation_info(key);
        if (info != nullptr) defaults = model::default_parameters(info->parameters);
      } catch (...) {
        logger.warning(fmt::format("Could not get default parameters for {}: {}", key, failure_text()));
      }
      workflow->result_operations.push_back(model::result_op(key, defaults));
    }
    logger.info(fmt::format("Synced {} result operations to workflow", operation_keys.size()));
    events.workflow_result_operations_changed.emit();
  } catch (...) {
    logger.error("Error syncing result operations to workflow: " + failure_text());
  }
}

}  // namespace orvexa::controller
