#include "orvexa/model/mask_operations/mask_operation.h"

#include <fmt/format.h>

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "orvexa/common/text.h"

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

/// Pixels that are set now, were not before, and belong to no region now.
std::int64_t added_outside_regions(const Mask& before, const Mask& after, const RunContext& context) {
  const cv::Mat& labels = after.labels()->image;
  const auto width = static_cast<std::size_t>(labels.cols);
  std::atomic<std::int64_t> total = 0;
  for_each_stripe(labels.rows, labels.cols, context, [&](int y0, int y1) {
    std::int64_t n = 0;
    for (int y = y0; y < y1; ++y) {
      const std::uint8_t* was_set = before.row(y).data();
      const std::uint8_t* is_set = after.row(y).data();
      const std::int32_t* label = labels.ptr<std::int32_t>(y);
      for (std::size_t x = 0; x < width; ++x) n += is_set[x] != 0 && was_set[x] == 0 && label[x] == 0 ? 1 : 0;
    }
    total += n;
  });
  return total;
}

}  // namespace

const char* added_pixels_text() {
  return " Where earlier steps made regions, a pixel that is added where none of them is belongs to no region; the "
         "note says how many do.";
}

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
  result = result->with_labels(labels).with_bounds(bounds);
  if (info()._preview_unconstrained && current && labels) note_added_pixels(*current, *result);
  return result;
}

void MaskOperation::note_added_pixels(const Mask& before, const Mask& after) {
  const std::int64_t n = added_outside_regions(before, after, context());
  if (n == 0) return;
  if (!note.empty()) note += "; ";
  note += n == 1 ? std::string("1 pixel that was added belongs to no region.")
                 : fmt::format("{} pixels that were added belong to no region.", common::grouped_integer_text(n));
}

}  // namespace orvexa::model
