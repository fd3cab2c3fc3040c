#include <fmt/format.h>

#include <stdexcept>
#include <utility>

#include "orvexa/common/logger.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/model/mask_operations/registry.h"
#include "orvexa/model/pictures/overlay.h"
#include "orvexa/model/workflow/parameter_files.h"

namespace orvexa::controller {

using common::logger;
using model::failure_text;

namespace {

/// Over all values of all channels.
struct ValueSummary {
  double mean = 0;
  std::int64_t zeros = 0;
  std::int64_t total = 0;
};

template <typename T>
ValueSummary summary_of(const model::Image& image) {
  ValueSummary summary;
  double sum = 0;
  for (int y = 0; y < image.height(); ++y) {
    for (const T value : image.row<T>(y)) {
      sum += static_cast<double>(value);
      if (value == T{0}) ++summary.zeros;
    }
  }
  summary.total = image.shape().pixels() * image.channels();
  summary.mean = sum / static_cast<double>(summary.total);
  return summary;
}

ValueSummary summary_of(const model::Image& image) {
  switch (image.type()) {
    case model::PixelType::u8:
      return summary_of<std::uint8_t>(image);
    case model::PixelType::u16:
      return summary_of<std::uint16_t>(image);
    case model::PixelType::f32:
      break;
  }
  return summary_of<float>(image);
}

}  // namespace

Value Controller::_resolved_mask_params(const std::string& op, const Value& params) const {
  const auto workflow = state.current_workflow;
  return model::resolved_mask_params(op, params, workflow ? workflow->folder : Path());
}

std::shared_ptr<model::CaptureSet> Controller::get_mask_result(int mask_index,
                                                               const common::CancelEvent* cancel_event) {
  const auto workflow = state.current_workflow;
  const auto capture = state.current_capture;
  if (!workflow || !capture || mask_index < 0 || std::cmp_greater_equal(mask_index, workflow->mask_operations.size())) {
    return nullptr;
  }
  // The nearest step that is known, then forward from there: a file may hold more steps than the stack holds calls.
  int index = mask_index;
  while (index >= 0 && !_mask_result_cache.contains(index)) --index;
  std::shared_ptr<model::CaptureSet> result = index >= 0 ? _mask_result_cache.at(index) : capture;
  for (++index; index <= mask_index; ++index) {
    const model::MaskOperationConfig& mask_op_config = workflow->mask_operations[static_cast<std::size_t>(index)];
    try {
      result = _compute_mask_step(index, *result, mask_op_config, cancel_event);
      _mask_result_cache[index] = result;
    } catch (const model::CancelledError&) {
      throw;
    } catch (...) {
      logger.exception(fmt::format("Controller.get_mask_result: Failed to compute mask result at index {} for {} - {}",
                                   index, mask_op_config.op, failure_text()));
      return nullptr;
    }
  }
  return result;
}

std::shared_ptr<model::CaptureSet> Controller::_compute_mask_step(int mask_index,
                                                                  const model::CaptureSet& input_capture,
                                                                  const model::MaskOperationConfig& mask_op_config,
                                                                  const common::CancelEvent* cancel_event) {
  if (_prepared_step && _prepared_step->input_capture.get() == &input_capture &&
      _prepared_step->mask_op_config == mask_op_config) {
    const PreparedStep prepared = *std::exchange(_prepared_step, std::nullopt);
    if (prepared.failure) std::rethrow_exception(prepared.failure);
    return prepared.new_capture;
  }
  const auto op = model::get_mask_operation(mask_op_config.op)();
  op->set_context({.cancel_event = cancel_event, .progress = {}});
  const std::optional<model::Mask>& current_mask = input_capture.mask;
  logger.debug(fmt::format("Controller._compute_mask_step: Running {} at index {} (has current_mask: {})",
                           mask_op_config.op, mask_index, current_mask ? "True" : "False"));
  const std::optional<model::Mask> mask =
      op->apply({.image_stack = input_capture,
                 .current_mask = current_mask,
                 .params = _resolved_mask_params(mask_op_config.op, mask_op_config.params)});
  if (!mask) throw std::invalid_argument(fmt::format("Mask operation '{}' returned no mask", mask_op_config.op));

  const bool starts_afresh = model::resets_mask_chain(mask_op_config.params) && state.current_capture;
  const model::CaptureSet& receiver = starts_afresh ? *state.current_capture : input_capture;
  auto new_capture =
      receiver.apply_mask(*mask, {.operation_name = mask_op_config.op, .operation_params = mask_op_config.params});
  if (op->viz_overlay) {
    new_capture->viz_overlay = input_capture.viz_overlay
                                   ? model::painted_over(*input_capture.viz_overlay, *op->viz_overlay)
                                   : *op->viz_overlay;
  }
  return new_capture;
}

std::optional<model::Mask> Controller::build_accumulated_mask(const std::optional<std::string>& up_to_but_not_including,
                                                              const common::CancelEvent* cancel_event) const {
  const auto capture = state.current_capture;
  const auto workflow = state.current_workflow;
  if (!capture || !workflow || workflow->mask_operations.empty()) return std::nullopt;
  const bool has_end = up_to_but_not_including && !up_to_but_not_including->empty();
  const model::ImageStack image_stack = capture->image_stack();
  std::optional<model::Mask> current_mask;
  for (const model::MaskOperationConfig& mask_op_config : workflow->mask_operations) {
    if (has_end && mask_op_config.op == *up_to_but_not_including) break;
    try {
      const auto op = model::get_mask_operation(mask_op_config.op)();
      op->set_context({.cancel_event = cancel_event, .progress = {}});
      op->wants_overlay = false;
      current_mask = op->apply({.image_stack = image_stack,
                                .current_mask = current_mask,
                                .params = _resolved_mask_params(mask_op_config.op, mask_op_config.params)});
    } catch (const model::CancelledError&) {
      throw;
    } catch (...) {
      logger.error(
          fmt::format("Controller.build_accumulated_mask: Failed on {} - {}", mask_op_config.op, failure_text()));
    }
  }
  return current_mask;
}

std::shared_ptr<model::CaptureSet> Controller::_create_masked_capture_for_index(const model::CaptureSet& capture,
                                                                                int mask_index) const {
  logger.info(fmt::format("Creating masked capture for mask index {}", mask_index));
  model::MeasurementMap masked_measurements;
  for (const auto& [meas_name, measurement] : capture.measurements) {
    const std::size_t count = measurement->masks.size();
    if (count == 0 || !std::cmp_greater(count, mask_index)) {
      logger.warning(
          fmt::format("MASK DEBUG: Measurement {} has no mask at index {}, using original", meas_name, mask_index));
      masked_measurements.insert_or_assign(meas_name, measurement);
      continue;
    }
    logger.info(
        fmt::format("MASK DEBUG: Processing measurement {} with {} masks for index {}", meas_name, count, mask_index));
    const auto masked_measurement = measurement->deep_copy();
    model::ImageMap masked_images = masked_measurement->get_masked_images(mask_index);
    if (masked_images.empty()) {
      logger.warning(fmt::format("MASK DEBUG: Failed to get masked images for {} at index {}", meas_name, mask_index));
    } else {
      masked_measurement->images = std::move(masked_images);
      logger.info(
          fmt::format("MASK DEBUG: Replaced images in {} with masked versions from index {}", meas_name, mask_index));
      for (const auto& [img_name, img_data] : masked_measurement->images) {
        if (!img_data.is_array()) continue;
        const ValueSummary summary = summary_of(img_data.pixels());
        const double percent = static_cast<double>(summary.zeros) / static_cast<double>(summary.total) * 100;
        logger.info(fmt::format("MASK DEBUG: {}.{} AFTER masking - Mean: {:.2f}, Zero pixels: {}/{} ({:.1f}%)",
                                meas_name, img_name, summary.mean, summary.zeros, summary.total, percent));
      }
    }
    masked_measurements.insert_or_assign(meas_name, masked_measurement);
  }
  const std::size_t measurement_count = masked_measurements.size();
  auto new_capture = std::make_shared<model::CaptureSet>(
      model::CaptureSet::Arguments{.name = fmt::format("{}_mask_{}", capture.name, mask_index),
                                   .header = capture.header,
                                   .measurements = std::move(masked_measurements),
                                   .bands = capture._bands});
  logger.info(fmt::format("Created masked capture with {} measurements with updated images", measurement_count));
  return new_capture;
}

void Controller::clear_intermediate_results_cache() {
  _mask_result_cache.clear();
  _prepared_step.reset();
}

}  // namespace orvexa::controller
