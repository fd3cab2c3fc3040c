#pragma once

#include <string>
#include <string_view>

#include "orvexa/model/operation_base.h"

namespace orvexa::model {

// What thresholds have in common that differ from pixel to pixel.

/// The parameter `window`, a side of 3 to 501 pixels.
[[nodiscard]] ParameterInfo window_parameter(int default_side);
/// @param operation  its key, for the sentence.
/// @throws std::invalid_argument with a sentence for an even side.
void check_window(std::string_view operation, const Value& params);
/// Pixels on each side of the middle one.
[[nodiscard]] int window_radius(const Value& params);

/// The parameter `polarity` of which side is kept.
[[nodiscard]] ParameterInfo polarity_parameter();
[[nodiscard]] bool keeps_bright(const Value& params);

/// A sentence on what windows see, for descriptions.
[[nodiscard]] std::string window_text();
/// A sentence on how exact mean and standard deviation of a window are, for descriptions.
[[nodiscard]] const char* window_precision_text();

}  // namespace orvexa::model
