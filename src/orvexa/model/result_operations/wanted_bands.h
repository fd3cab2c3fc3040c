#pragma once

#include <optional>
#include <string>
#include <vector>

#include "orvexa/model/entities/result_bundle.h"
#include "orvexa/model/measures/bands.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::model {

/// The parameter `bands` of operations that look at planes one by one: names, none = every plane.
[[nodiscard]] ParameterInfo bands_parameter();

/// A plane that was asked for, or why the capture has none.
struct WantedBand {
  std::string name;  ///< of the plane; as it was asked for where there is none
  std::optional<Band> band = std::nullopt;
  std::string reason = {};
};

/// The planes that the parameter names, each once, and a note in the result of those that there are.
/// @throws std::runtime_error when the capture lacks all of them.
[[nodiscard]] std::vector<WantedBand> wanted_bands(const ImageSource& source, const Value& names,
                                                   OperationResult& result);

/// For `check_capture` of an operation with the parameter.
/// @throws std::runtime_error when the capture lacks all of them.
void check_wanted_bands(const ImageSource& source, const Value& params);

}  // namespace orvexa::model
