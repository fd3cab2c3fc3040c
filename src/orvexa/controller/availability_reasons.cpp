#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>
#include <vector>

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

/// Whether what is read of a capture depends on a parameter, so that others than the defaults may find what they need.
bool chooses_what_it_reads(const model::ParameterList& parameters) {
  using enum model::ParameterType;
  static constexpr std::array choosing{band, bands, choice, choices, expression, file};
  return std::ranges::any_of(parameters, [](const model::ParameterInfo& parameter) {
    return std::ranges::find(choosing, parameter.type) != choosing.end();
  });
}

/// The complaint about the first of the workflow's entries, none when one of them can be used; about the defaults when
/// there are no entries.
std::optional<std::string> complaint(const auto& info, const model::ImageSource& capture,
                                     const std::vector<Value>& entries) {
  std::optional<std::string> first;
  for (const Value& params : entries) {
    auto own = complaint(info, capture, params);
    if (!own) return std::nullopt;
    if (!first) first = std::move(own);
  }
  if (!entries.empty()) return first;
  auto of_defaults = complaint(info, capture, Value::object());
  if (of_defaults && chooses_what_it_reads(info.parameters)) of_defaults->insert(0, Controller::with_its_defaults);
  return of_defaults;
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

/// The parameters of the entries of an operation.
std::vector<Value> parameters_of(std::string_view key, const auto& operations) {
  std::vector<Value> parameters;
  for (const auto& entry : operations) {
    if (entry.op == key) parameters.push_back(entry.params);
  }
  return parameters;
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
  return complaint(info, capture, parameters_of(key, workflow.result_operations));
}

std::optional<std::string> Controller::explain_mask_availability(std::string_view key,
                                                                 const std::optional<Value>& params) const {
  const model::MaskOperationInfo& info = model::get_mask_operation(key);
  if (!state.current_capture) return no_capture;
  const model::Workflow workflow = state.current_workflow ? *state.current_workflow : model::Workflow();
  if (info.needs_mask && workflow.mask_operations.empty()) return needs(model::requirement_texts(info).front());
  if (params) return complaint(info, *state.current_capture, *params);
  return complaint(info, *state.current_capture, parameters_of(key, workflow.mask_operations));
}

}  // namespace orvexa::controller
