#include <algorithm>
#include <stdexcept>

#include "orvexa/controller/controller.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/model/mask_operations/registry.h"
#include "orvexa/model/requirement_text.h"
#include "orvexa/model/result_operations/registry.h"

namespace orvexa::controller {

namespace {

constexpr const char* no_capture = "No capture is loaded.";

std::string needs(const std::string& requirement) {
  return "It needs " + requirement + ".";
}

/// Checks parameters and capture; what is thrown is the reason.
std::optional<std::string> complaint(const auto& info, const model::ImageSource& capture, const Value& params) {
  try {
    const Value checked = info()->validate_params(params);
    if (info.check_capture) info.check_capture(capture, checked);
    return std::nullopt;
  } catch (...) {
    return model::failure_text();
  }
}

/// A step whose parameters are refused makes nothing.
bool makes_regions(const model::MaskOperationConfig& step) {
  const model::MaskOperationInfo* info = model::find_mask_operation(step.op);
  if (info == nullptr || !info->makes_regions) return false;
  try {
    return info->makes_regions((*info)()->validate_params(step.params));
  } catch (const std::invalid_argument&) {
    return false;
  }
}

/// The workflow's own parameters of a result operation, else none.
Value own_parameters(const model::Workflow& workflow, std::string_view key) {
  for (const model::ResultOperationConfig& entry : workflow.result_operations) {
    if (entry.op == key) return entry.params;
  }
  return Value::object();
}

}  // namespace

std::optional<std::string> Controller::explain_availability(std::string_view key) const {
  const model::ResultOperationInfo& info = model::get_result_operation(key);
  if (!state.current_capture) return no_capture;
  const model::CaptureSet& capture = *state.current_capture;
  if (!_check_measurement_requirements(info, capture.get_measurement_types())) {
    return needs(model::measurement_requirement_text(*info.required_measurements));
  }
  const model::Workflow workflow = state.current_workflow ? *state.current_workflow : model::Workflow();
  std::vector<std::string> mask_keys;
  for (const model::MaskOperationConfig& step : workflow.mask_operations) mask_keys.push_back(step.op);
  if (!_check_mask_requirements(info, mask_keys)) {
    return needs(model::mask_requirement_text(*info.operation_class._requires_mask_operation));
  }
  if (info.needs_labels && std::ranges::none_of(workflow.mask_operations, makes_regions)) {
    return needs(model::region_requirement_text());
  }
  return complaint(info, capture, own_parameters(workflow, key));
}

std::optional<std::string> Controller::explain_mask_availability(std::string_view key, const Value& params) const {
  const model::MaskOperationInfo& info = model::get_mask_operation(key);
  if (!state.current_capture) return no_capture;
  if (info.needs_mask && (!state.current_workflow || state.current_workflow->mask_operations.empty())) {
    return needs(model::requirement_texts(info).front());
  }
  return complaint(info, *state.current_capture, params);
}

}  // namespace orvexa::controller
