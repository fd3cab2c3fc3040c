#include <fmt/format.h>

#include <stdexcept>

#include "orvexa/common/logger.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/entities/mask_info.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/model/mask_operations/registry.h"

namespace orvexa::controller {

using common::logger;
using model::failure_text;

namespace {

/// A map with the entries of `above` put over it. What is no map is handed on for the check to refuse.
Value with_entries(const Value& below, const Value& above) {
  if (above.empty()) return below;
  if (!above.is_object()) return above;
  Value merged = below;
  for (const auto& [name, value] : above.items()) merged[name] = value;
  return merged;
}

std::optional<model::Mask> shown_mask(model::MaskOperation& operation, const model::MaskOperation::Input& input) {
  auto* able = dynamic_cast<model::Previewable*>(&operation);
  return able != nullptr ? able->preview(input) : operation.apply(input);
}

}  // namespace

void Controller::set_mask_operation(const std::string& operation_name, const std::optional<Value>& params) {
  if (!model::get_available_mask_operations().contains(operation_name)) {
    throw std::invalid_argument("Unknown mask operation: " + operation_name);
  }
  state.current_mask_operation = operation_name;
  const model::MaskOperationInfo& mask_op_class = model::get_mask_operation(operation_name);
  const Value merged = with_entries(mask_op_class.get_default_params(), params.value_or(Value::object()));
  state.mask_operation_params = mask_op_class()->validate_params(merged);
  update_mask_preview();
  refresh_all_panels();
}

void Controller::update_mask_operation_params(const Value& params) {
  if (!state.current_mask_operation || state.current_mask_operation->empty()) return;
  const auto op = model::get_mask_operation(*state.current_mask_operation)();
  state.mask_operation_params = op->validate_params(with_entries(state.mask_operation_params, params));
  update_mask_preview();
  refresh_all_panels();
}

void Controller::update_mask_preview() {
  const auto capture = state.current_capture;
  if (!state.current_mask_operation || !capture) {
    state.preview_mask.reset();
    state.preview_mask_images.reset();
    return;
  }
  try {
    const auto op = model::get_mask_operation(*state.current_mask_operation)();
    const std::string& display_name = op->get_display_name();
    const model::ImageStack image_stack = capture->image_stack();
    state.preview_mask =
        op->apply({.image_stack = image_stack,
                   .params = _resolved_mask_params(*state.current_mask_operation, state.mask_operation_params)});
    if (!state.preview_mask) {
      state.message = "Mask preview updated: " + display_name;
      return;
    }
    state.preview_mask_images =
        _generate_mask_preview_images(*state.preview_mask, *state.current_mask_operation, state.mask_operation_params);
    if (const std::int64_t mask_pixels = state.preview_mask->count(); mask_pixels != 0) {
      state.message =
          fmt::format("Mask preview updated: {} ({} pixels)", display_name, common::grouped_integer_text(mask_pixels));
    } else {
      state.message = "Warning: Generated mask is empty - no regions detected with current parameters";
      logger.warning("Controller.update_mask_preview: Empty mask generated for " + display_name);
    }
  } catch (...) {
    const std::string reason = failure_text();
    logger.error("Controller.generate_mask_preview: Error generating mask preview - " + reason);
    state.preview_mask.reset();
    state.preview_mask_images.reset();
    state.error = "Mask preview error: " + reason;
  }
}

void Controller::toggle_mask_preview(bool show) {
  state.show_mask_preview = show;
  state.message = std::string("Mask preview ") + (show ? "enabled" : "disabled");
  refresh_all_panels();
}

const std::optional<common::OrderedMap<PreviewImages>>& Controller::get_mask_preview_images() const {
  return state.preview_mask_images;
}

Controller::MaskPreview Controller::run_mask_preview(const std::string& operation_name, const Value& params,
                                                     const common::CancelEvent* cancel_event) const {
  return preview_on([&] { return build_accumulated_mask(operation_name, cancel_event); }, operation_name, params,
                    cancel_event);
}

Controller::MaskPreview Controller::run_next_step_preview(const std::string& operation_name, const Value& params,
                                                          const common::CancelEvent* cancel_event) {
  const auto chain_mask = [&]() -> std::optional<model::Mask> {
    const auto workflow = state.current_workflow;
    if (!workflow || workflow->mask_operations.empty()) return std::nullopt;
    const auto before = get_mask_result(static_cast<int>(workflow->mask_operations.size()) - 1, cancel_event);
    if (!before) throw std::runtime_error("A mask step before this one fails on this capture; correct that one first.");
    return before->mask;
  };
  return preview_on(chain_mask, operation_name, params, cancel_event);
}

Controller::MaskPreview Controller::preview_on(const std::function<std::optional<model::Mask>()>& accumulated_mask,
                                               const std::string& operation_name, const Value& params,
                                               const common::CancelEvent* cancel_event) const {
  const auto capture = state.current_capture;
  if (!capture) throw std::runtime_error("No capture data available for preview");
  auto op = model::get_mask_operation(operation_name)();
  op->set_context({.cancel_event = cancel_event, .progress = {}});
  const model::ImageStack image_stack = capture->image_stack();
  const model::MaskOperationInfo& info = op->info();
  const bool needs_chain = info._requires_accumulated_mask.value_or(!info._is_roi_operation);
  const std::optional<model::Mask> accumulated = needs_chain ? accumulated_mask() : std::nullopt;
  std::optional<model::Mask> preview_mask = shown_mask(*op, {.image_stack = image_stack,
                                                             .current_mask = accumulated,
                                                             .params = _resolved_mask_params(operation_name, params)});
  if (accumulated && preview_mask && !info._preview_unconstrained) preview_mask = *preview_mask & *accumulated;
  return {.mask = std::move(preview_mask), .operation = std::move(op)};
}

common::OrderedMap<PreviewImages> Controller::_generate_mask_preview_images(const model::Mask& mask_array,
                                                                            const std::string& operation_name,
                                                                            const Value& operation_params) const {
  common::OrderedMap<PreviewImages> previews;
  try {
    const auto capture = state.current_capture;
    if (!capture || capture->measurements.empty()) return previews;
    const model::MaskInfo mask_info{.operation_name = operation_name,
                                    .operation_params = operation_params,
                                    .mask_array = mask_array,
                                    .mask_index = 0};
    const model::Image mask_preview = mask_info.get_mask_preview_image();
    for (const auto& [meas_name, measurement] : capture->measurements) {
      PreviewImages preview{.masked_images = {}, .overlay_images = {}, .mask_preview = mask_preview};
      for (const auto& [img_name, img_data] : measurement->images) {
        if (!img_data.is_array()) continue;
        preview.masked_images.insert_or_assign(img_name, mask_info.apply_to_image(img_data));
        preview.overlay_images.insert_or_assign(img_name, mask_info.get_mask_overlay_image(img_data));
      }
      previews.insert_or_assign(meas_name, std::move(preview));
    }
    logger.debug(fmt::format("Generated mask preview images for {} measurements", previews.size()));
    return previews;
  } catch (...) {
    logger.error("Controller._generate_mask_preview_images: Error generating preview images - " + failure_text());
    return {};
  }
}

}  // namespace orvexa::controller
