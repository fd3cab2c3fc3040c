#pragma once

#include <opencv2/core.hpp>

#include <array>
#include <cstdint>
#include <string>

#include "orvexa/model/image.h"
#include "orvexa/model/mask.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// The colours of maps of numbers, from low to high, 8-bit sRGB: a straight line in CIELAB from dark blue to light
/// yellow, so that equal steps of the number are equal steps of the eye (about 0.55 in 1976 colour difference), told
/// apart by lightness alone and along blue to yellow also by people who confuse red and green.
/// Source of the idea: J. R. Nuñez, C. R. Anderton, R. S. Renslow, Optimizing colormaps with consideration for color
/// vision deficiency to enable accurate interpretation of scientific data, PLoS ONE 13(7), 2018, e0199239,
/// doi:10.1371/journal.pone.0199239.
[[nodiscard]] const std::array<std::array<std::uint8_t, 3>, 256>& heat_colors();

/// What a colour stands for.
struct HeatScale {
  double low = 0;     ///< this and less has the first colour
  double high = 1;    ///< this and more has the last colour; above `low`
  std::string title;  ///< over the colour bar, ASCII
};

/// Where a map has no value: pixels outside the mask and pixels without a valid number.
inline constexpr std::array<std::uint8_t, 3> no_value_color{217, 217, 217};

/// A picture of a map of numbers: the map in its own size at the left, at the right a strip with a colour bar and five
/// numbers. The picture is at least as high as the bar needs; what is left below the map is white.
/// @param values  height x width doubles; not finite = no value.
/// @throws std::invalid_argument when the sizes differ or low is not below high.
[[nodiscard]] Image heat_map_picture(const cv::Mat& values, const Mask& mask, const HeatScale& scale,
                                     const RunContext& context);

/// The numbers as a 32-bit float image: NaN where there is no value.
[[nodiscard]] Image map_numbers(const cv::Mat& values, const Mask& mask, const RunContext& context);

}  // namespace orvexa::model
