#include "orvexa/model/result_operations/result_operation.h"

#include <optional>

namespace orvexa::model {

namespace {

constexpr const char* each_region = "each_region";

}  // namespace

ParameterInfo each_region_parameter() {
  return {.name = each_region,
          .type = ParameterType::boolean,
          .default_value = true,
          .help = "Whether each region is measured too; otherwise only the whole mask is."};
}

std::unique_ptr<ResultOperation> ResultOperationInfo::operator()() const {
  std::unique_ptr<ResultOperation> operation = operation_class.make();
  operation->_info = this;
  return operation;
}

Value ResultOperation::validate_params(const Value& params) const {
  Value validated = validate_parameters(info().key, info().parameters, params);
  check(validated);
  return validated;
}

OperationResult ResultOperation::run(const Input& input) {
  const Value params = validate_params(input.params);
  context().check();
  if (input.regions != nullptr) return measure(input.source_capture, *input.regions, params);
  const CaptureSet& capture = input.source_capture;
  const RegionSet regions(capture.mask ? *capture.mask : Mask::full(capture.get_shape()), context());
  return measure(capture, regions, params);
}

OperationResult ResultOperation::measure(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const auto wanted = params.find(each_region);
  const bool is_whole_only = wanted != params.end() && !wanted->get<bool>();
  if (!is_whole_only || regions.is_single()) return compute(capture, regions, params);
  OperationResult result = compute(capture, regions.joined(), params);
  result.regions.clear();
  return result;
}

}  // namespace orvexa::model
