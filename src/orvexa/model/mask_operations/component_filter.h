#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

#include "orvexa/model/measures/components.h"

namespace orvexa::model {

/// Gives the pixels of chosen components a value and leaves all others as they are.
/// @param is_chosen  one entry a component.
/// @param pixels  CV_8UC1 of the components' size.
void paint_components(const Components& components, const std::vector<char>& is_chosen, std::uint8_t value,
                      const RunContext& context, cv::Mat& pixels);

/// What is left of a mask without the components that are not kept.
/// @param components  of that mask
[[nodiscard]] cv::Mat only_kept(const Mask& mask, const Components& components, const std::vector<char>& is_kept,
                                const RunContext& context);

}  // namespace orvexa::model
