#pragma once

#include "orvexa/model/image_source.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::model {

/// The parameter `band` of operations on one band.
[[nodiscard]] ParameterInfo band_parameter();

/// For `check_capture` of such operations.
/// @throws std::runtime_error with a sentence when the capture has no such band.
void check_band(const ImageSource& source, const Value& params);

}  // namespace orvexa::model
