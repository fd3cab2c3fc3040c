#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "orvexa/controller/controller.h"
#include "orvexa/model/mask_operations/registry.h"
#include "orvexa/model/result_operations/registry.h"
#include "support/captures.h"
#include "support/operations.h"

namespace orvexa::test {

using common::Value;

struct Probe : controller::Controller {
  using Controller::_mask_result_cache;
  using Controller::_ui_panels;
  using Controller::_watcher;
  using Controller::Controller;
};

/// A state whose two rules can be watched or made to fail.
struct ScriptedState final : controller::AppState {
  std::function<void(ScriptedState&)> on_derive;
  std::function<void(ScriptedState&)> on_reset;
  void derive_phase() override {
    if (on_derive) on_derive(*this);
    AppState::derive_phase();
  }
  void reset_system_state() override {
    if (on_reset) on_reset(*this);
    AppState::reset_system_state();
  }
};

// ---- Mask operations
// -------------------------------------------------------------------------------------------------

struct MaskCall {
  const model::ImageSource& image_stack;
  const model::Mask* current_mask;
  const Value& params;
  model::MaskOperation& operation;
};
using MaskBody = std::function<std::optional<model::Mask>(const MaskCall&)>;

/// Registered as `key`, shown as "The KEY".
inline model::MaskOperationInfo mask_operation(const std::string& key, MaskBody body,
                                               model::ParameterList parameters = {}) {
  model::MaskOperationInfo info;
  info.key = key;
  info.display_name = "The " + key;
  info.parameters = std::move(parameters);
  info.make = [body = std::move(body)] {
    return std::make_unique<FakeMask>([body](FakeMask& operation, const model::ImageSource& image_stack,
                                             const model::Mask* current_mask, const Value& params) {
      return body({image_stack, current_mask, params, operation});
    });
  };
  return info;
}

/// Gives the same mask at every run.
inline MaskBody gives(model::Mask mask) {
  return [mask = std::move(mask)](const MaskCall&) { return std::optional(mask); };
}

inline MaskBody fails(const std::string& reason) {
  return [reason](const MaskCall&) -> std::optional<model::Mask> { throw std::runtime_error(reason); };
}

// ---- Result operations
// -----------------------------------------------------------------------------------------------

/// A result operation as the availability rules see it; nothing runs it.
inline model::ResultOperationInfo result_operation(
    const std::string& key, const std::string& category,
    std::optional<std::vector<model::MeasurementRequirement>> measurements = std::nullopt,
    std::optional<std::vector<std::string>> mask_patterns = std::nullopt, model::ParameterList parameters = {}) {
  model::ResultOperationInfo info;
  info.key = key;
  info.display_name = key;
  info.category = category;
  info.parameters = std::move(parameters);
  info.required_measurements = std::move(measurements);
  info.operation_class._requires_mask_operation = std::move(mask_patterns);
  return info;
}

inline model::ParameterInfo integer_parameter(const std::string& name, int default_value) {
  model::ParameterInfo parameter;
  parameter.name = name;
  parameter.type = model::ParameterType::integer;
  parameter.default_value = default_value;
  return parameter;
}

// ---- Captures and workflows
// ------------------------------------------------------------------------------------------

/// Two rows of three pixels in measurement MSP, image RED: 1 2 3 / 4 5 6.
inline std::shared_ptr<model::CaptureSet> small_capture(const std::string& name = "plot") {
  return capture(name, {{"MSP", {{"RED", image<std::uint8_t>({{1, 2, 3}, {4, 5, 6}})}}}});
}

/// A capture with the given measurements, each of them holding so many masks.
inline std::shared_ptr<model::CaptureSet> capture_with_masks(
    const std::string& name, const std::vector<std::pair<std::string, int>>& measurements) {
  auto result = std::make_shared<model::CaptureSet>(model::CaptureSet::Arguments{name, nullptr, {}, {}});
  for (const auto& [measurement_name, count] : measurements) {
    auto measurement = std::make_shared<model::BaseMeasurement>();
    measurement->images.insert_or_assign("IMG", flat_image<std::uint8_t>(1, 2, 7));
    for (int i = 0; i < count; ++i) {
      measurement->masks.push_back({.operation_name = "step", .mask_array = mask({"#."}), .mask_index = i});
    }
    result->measurements.insert_or_assign(measurement_name, std::move(measurement));
  }
  return result;
}

inline std::shared_ptr<model::Workflow> workflow_of(const std::vector<std::string>& mask_keys,
                                                    const std::vector<std::string>& result_keys = {}) {
  auto workflow = std::make_shared<model::Workflow>();
  workflow->title = "given";
  for (const std::string& key : mask_keys) workflow->mask_operations.push_back({{.op = key}});
  for (const std::string& key : result_keys) workflow->result_operations.push_back({{.op = key}});
  return workflow;
}

template <typename Config>
std::vector<std::string> keys_of(const std::vector<Config>& steps) {
  std::vector<std::string> keys;
  for (const Config& step : steps) keys.push_back(step.op);
  return keys;
}

inline std::vector<int> cached_indices(const Probe& controller) {
  std::vector<int> indices;
  for (const auto& [index, cached] : controller._mask_result_cache) indices.push_back(index);
  return indices;
}

// ---- Panels
// ----------------------------------------------------------------------------------------------------------

struct PlainPanel : controller::Panel {
  PlainPanel(std::string class_name_, std::string module_path_)
      : name(std::move(class_name_)), module(std::move(module_path_)) {}
  std::string class_name() const override { return name; }
  std::string module_path() const override { return module; }
  void setEnabled(bool) override {}
  std::string name;
  std::string module;
};

struct RefreshedPanel : PlainPanel, controller::Refreshable {
  RefreshedPanel(std::string class_name_, std::string module_path_, std::function<void()> on_refresh_ = {})
      : PlainPanel(std::move(class_name_), std::move(module_path_)), on_refresh(std::move(on_refresh_)) {}
  void refresh() override {
    ++refreshes;
    if (on_refresh) on_refresh();
  }
  std::function<void()> on_refresh;
  int refreshes = 0;
};

inline const std::string analysis_module = "orvexa.ui.analysis_mode.panel";
inline const std::string batch_module = "orvexa.ui.batchprocessing_mode.panel";
inline const std::string watcher_module = "orvexa.ui.filewatcher_mode.panel";
inline const std::string shared_module = "orvexa.ui.shared.panel";

}  // namespace orvexa::test
