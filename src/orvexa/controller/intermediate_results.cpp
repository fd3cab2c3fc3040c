#include <fmt/format.h>

#include <stdexcept>
#include <utility>

#include "orvexa/common/logger.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/model/result_operations/registry.h"
#include "orvexa/model/workflow/parameter_files.h"

namespace orvexa::controller {

using common::logger;
using model::failure_text;

namespace {

template <typename Config>
const Config& step_at(const std::vector<Config>& steps, int index, const char* kind) {
  if (index < 0) throw std::out_of_range(fmt::format("The workflow has no {} with index {}.", kind, index));
  return steps.at(static_cast<std::size_t>(index));
}

}  // namespace

std::optional<Controller::MaskIntermediate> Controller::generate_mask_intermediate_results(
    int mask_index, const common::CancelEvent* cancel_event) {
  try {
    const auto capture = _cap();
    const auto workflow = _wf();
    if (std::cmp_greater_equal(mask_index, workflow->mask_operations.size())) return std::nullopt;
    const model::Mask mask = executor->build_mask(*capture, *workflow, mask_index, cancel_event);
    const auto masked_capture = capture->apply_mask(mask);
    common::OrderedMap<model::ImageMap> masked_images;
    for (const auto& [meas_name, measurement] : masked_capture->measurements) {
      masked_images.insert_or_assign(meas_name, measurement->images);
    }
    return MaskIntermediate{.mask = mask,
                            .masked_images = std::move(masked_images),
                            .mask_operation = step_at(workflow->mask_operations, mask_index, "mask step")};
  } catch (...) {
    logger.error("Controller.generate_mask_intermediate_results: Error generating mask intermediate results - " +
                 failure_text());
    return std::nullopt;
  }
}

std::optional<Controller::OperationIntermediate> Controller::generate_operation_intermediate_results(
    int operation_index, const common::CancelEvent* cancel_event) {
  try {
    const auto capture = _cap();
    const auto workflow = _wf();
    if (std::cmp_greater_equal(operation_index, workflow->result_operations.size())) return std::nullopt;
    const model::Mask mask = executor->build_mask(*capture, *workflow, std::nullopt, cancel_event);
    const auto masked_capture = capture->apply_mask(mask);
    const model::ResultOperationConfig& op_config =
        step_at(workflow->result_operations, operation_index, "result operation");
    const auto op = model::get_result_operation(op_config.op)();
    op->set_context({.cancel_event = cancel_event, .progress = {}});
    model::OperationResult operation_result =
        op->run({.source_capture = *masked_capture,
                 .params = model::resolved_result_params(op_config.op, op_config.params, workflow->folder)});
    return OperationIntermediate{.operation_result = std::move(operation_result),
                                 .operation_config = op_config,
                                 .masked_capture_used = masked_capture};
  } catch (...) {
    logger.error(
        "Controller.generate_operation_intermediate_results: Error generating operation intermediate results - " +
        failure_text());
    return std::nullopt;
  }
}

}  // namespace orvexa::controller
