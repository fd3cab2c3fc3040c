#pragma once

#include <string>

#include "orvexa/model/mask_operations/mask_operation.h"
#include "orvexa/model/result_operations/result_operation.h"

namespace orvexa::model {

/// What an operation needs, as the ends of a sentence that begins "Needs ": "the measurement FLU", "a mask made by an
/// earlier step".
[[nodiscard]] std::vector<std::string> requirement_texts(const MaskOperationInfo& info);
[[nodiscard]] std::vector<std::string> requirement_texts(const ResultOperationInfo& info);

[[nodiscard]] std::string measurement_requirement_text(const std::vector<MeasurementRequirement>& required);
/// @param patterns  at least one.
[[nodiscard]] std::string mask_requirement_text(const std::vector<std::string>& patterns);
/// "regions made by a mask step: roi_rects or roi_grid": those of the registry that can make some.
[[nodiscard]] std::string region_requirement_text();

}  // namespace orvexa::model
