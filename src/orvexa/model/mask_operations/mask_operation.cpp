#include "orvexa/model/mask_operations/mask_operation.h"

#include <stdexcept>
#include <utility>

namespace orvexa::model {

namespace {

const ParameterInfo& reset_mask_chain_parameter() {
  static const ParameterInfo parameter{
      .name = "reset_mask_chain",
      .type = ParameterType::boolean,
      .default_value = false,
      .help = "Starts the chain of masks afresh: what earlier steps left out counts again."};
  return parameter;
}

}  // namespace

ParameterList MaskOperationInfo::all_parameters() const {
  ParameterList all = parameters;
  all.push_back(reset_mask_chain_parameter());
  return all;
}

Value MaskOperationInfo::get_default_params() const {
  return default_parameters(all_parameters());
}

std::unique_ptr<MaskOperation> MaskOperationInfo::operator()() const {
  std::unique_ptr<MaskOperation> operation = make();
  operation->_info = this;
  return operation;
}

bool resets_mask_chain(const Value& params) {
  const auto found = params.find("reset_mask_chain");
  return found != params.end() && found->is_boolean() && found->get<bool>();
}

Value MaskOperation::validate_params(const Value& params) const {
  Value validated = validate_parameters(info().key, info().all_parameters(), params);
  check(validated);
  return validated;
}

std::optional<Mask> MaskOperation::apply(const Input& input) {
  const Value params = validate_params(input.params);
  context().check();
  std::optional<Mask> current = input.current_mask;
  if (info().needs_mask && !current) {
    throw std::runtime_error(get_display_name() + " needs a mask to work on: put a step that makes one before it.");
  }
  if (current && current->shape() != input.image_stack.get_shape()) {
    throw std::invalid_argument("The current mask has another size than the images of the capture.");
  }
  if (resets_mask_chain(params) && !info().needs_mask) current.reset();

  std::optional<Mask> result = compute(input.image_stack, current ? &*current : nullptr, params);
  if (!result) return std::nullopt;
  context().check();
  std::optional<Mask> bounds = current ? current->bounds() : std::nullopt;
  const std::optional<Mask> limit = info()._preview_unconstrained ? bounds : current;
  if (info()._is_roi_operation) bounds = bounds ? *result & *bounds : *result;
  const auto labels = result->labels() || !current ? result->labels() : current->labels();
  if (limit) result = *result & *limit;
  return result->with_labels(labels).with_bounds(bounds);
}

}  // namespace orvexa::model
