#pragma once

#include <opencv2/core.hpp>

#include <vector>

#include "orvexa/model/measures/components.h"

namespace orvexa::model {

/// 255 where a pixel belongs to a component with `is_chosen[k - 1]`, 0 elsewhere.
/// @param is_chosen  one entry a component.
[[nodiscard]] cv::Mat pixels_of_components(const Components& components, const std::vector<char>& is_chosen,
                                           const RunContext& context);

}  // namespace orvexa::model
