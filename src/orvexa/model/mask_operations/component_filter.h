#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <string_view>
#include <vector>

#include "orvexa/model/measures/components.h"
#include "orvexa/model/operation_base.h"

namespace orvexa::model {

/// Gives the pixels of chosen components a value and leaves all others as they are.
/// @param is_chosen  one entry a component.
/// @param pixels  CV_8UC1 of the components' size.
void paint_components(const Components& components, const std::vector<char>& is_chosen, std::uint8_t value,
                      const RunContext& context, cv::Mat& pixels);

/// The parameter `of` of a filter of parts: "components" are the connected parts of the mask, "regions" those that an
/// earlier step made.
[[nodiscard]] ParameterInfo parts_parameter();

/// The regions of a mask with labels, with what the mask left of them, as if they were components: one need not be
/// connected and may have no pixel (area 0, an empty box); pixels of no region are in none.
[[nodiscard]] Components components_of_regions(const Mask& mask, const RunContext& context);

/// What the parameter `of` asks for: the 8-connected components of a mask, or its regions.
/// @param operation  display name, for the sentence.
/// @throws std::runtime_error for regions of a mask without regions.
[[nodiscard]] Components find_parts(std::string_view operation, const Mask& mask, const Value& params,
                                    const RunContext& context);

/// What is left of a mask without the components that are not kept.
/// @param components  of that mask
[[nodiscard]] cv::Mat only_kept(const Mask& mask, const Components& components, const std::vector<char>& is_kept,
                                const RunContext& context);
/// A picture of the kept components alone, 0 and 255.
[[nodiscard]] cv::Mat only_kept(const Components& components, const std::vector<char>& is_kept,
                                const RunContext& context);

}  // namespace orvexa::model
