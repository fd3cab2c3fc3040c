#pragma once

#include <vector>

#include "orvexa/model/entities/result_bundle.h"
#include "orvexa/model/measures/bands.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::model {

/// The parameter `bands` of operations that look at planes one by one: names, none = every plane.
[[nodiscard]] ParameterInfo bands_parameter();

/// The planes that the parameter names, each once, and a note of them in the result.
/// @throws std::runtime_error when the capture lacks one.
[[nodiscard]] std::vector<Band> wanted_bands(const ImageSource& source, const Value& names, OperationResult& result);

}  // namespace orvexa::model
