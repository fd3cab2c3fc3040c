#include <fmt/format.h>

#include <stdexcept>
#include <utility>

#include "orvexa/common/clock.h"
#include "orvexa/common/logger.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/failure_text.h"
#include "orvexa/model/mask_operations/registry.h"
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

/// The mask steps before `count` with their completed parameters. Which bands they choose the executor keeps to itself.
std::vector<model::StepRecord> mask_step_records(const model::Workflow& workflow, std::size_t count) {
  std::vector<model::StepRecord> records;
  records.reserve(count);
  for (std::size_t index = 0; index < count; ++index) {
    const model::MaskOperationConfig& step = workflow.mask_operations[index];
    const model::Value params = model::resolved_mask_params(step.op, step.params, workflow.folder);
    records.push_back({.op = step.op,
                       .params = model::get_mask_operation(step.op)()->validate_params(params),
                       .chosen_bands = nullptr});
  }
  return records;
}

}  // namespace

std::optional<Controller::MaskIntermediate> Controller::generate_mask_intermediate_results(
    int mask_index, const common::CancelEvent* cancel_event) {
  try {
    const auto capture = _cap();
    const auto workflow = _wf();
    if (std::cmp_greater_equal(mask_index, workflow->mask_operations.size())) return std::nullopt;
    model::ProvenanceRecord record = begun_record(*capture, *workflow, capture->name);
    const model::Mask mask = executor->build_mask(*capture, *workflow, mask_index, cancel_event);
    const model::MaskOperationConfig& step = step_at(workflow->mask_operations, mask_index, "mask step");
    record.part = fmt::format("mask step {} ({})", mask_index + 1, step.op);
    record.mask_steps = mask_step_records(*workflow, static_cast<std::size_t>(mask_index) + 1);
    const auto masked_capture = capture->apply_mask(mask);
    common::OrderedMap<model::ImageMap> masked_images;
    for (const auto& [meas_name, measurement] : masked_capture->measurements) {
      masked_images.insert_or_assign(meas_name, measurement->images);
    }
    record.finished = common::now();
    return MaskIntermediate{.mask = mask,
                            .masked_images = std::move(masked_images),
                            .mask_operation = step,
                            .provenance = std::move(record)};
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
    model::ProvenanceRecord record = begun_record(*capture, *workflow, capture->name);
    const model::Mask mask = executor->build_mask(*capture, *workflow, std::nullopt, cancel_event);
    const auto masked_capture = capture->apply_mask(mask);
    const model::ResultOperationConfig& op_config =
        step_at(workflow->result_operations, operation_index, "result operation");
    const auto op = model::get_result_operation(op_config.op)();
    op->set_context({.cancel_event = cancel_event, .progress = {}});
    const model::Value params = model::resolved_result_params(op_config.op, op_config.params, workflow->folder);
    model::OperationResult operation_result = op->run({.source_capture = *masked_capture, .params = params});
    record.part = fmt::format("result operation {} ({})", operation_index + 1, op_config.op);
    record.mask_steps = mask_step_records(*workflow, workflow->mask_operations.size());
    record.result_steps = {
        {.op = op_config.op, .params = op->validate_params(params), .chosen_bands = operation_result.chosen_bands}};
    record.finished = common::now();
    return OperationIntermediate{.operation_result = std::move(operation_result),
                                 .operation_config = op_config,
                                 .masked_capture_used = masked_capture,
                                 .provenance = std::move(record)};
  } catch (...) {
    logger.error(
        "Controller.generate_operation_intermediate_results: Error generating operation intermediate results - " +
        failure_text());
    return std::nullopt;
  }
}

}  // namespace orvexa::controller
