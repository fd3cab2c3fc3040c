#include "orvexa/model/result_operations/result_operation.h"

#include <optional>

namespace orvexa::model {

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
  if (input.regions != nullptr) return compute(input.source_capture, *input.regions, params);
  const CaptureSet& capture = input.source_capture;
  const RegionSet regions(capture.mask ? *capture.mask : Mask::full(capture.get_shape()), context());
  return compute(capture, regions, params);
}

}  // namespace orvexa::model
