#pragma once

#include <opencv2/core.hpp>

#include <array>
#include <cstdint>
#include <span>

#include "orvexa/model/pick_geometry.h"

namespace orvexa::model {

/// The colour of crosses on overlays, R G B.
inline constexpr std::array<std::uint8_t, 3> marker_color{255, 255, 0};

/// Draws a cross over each picked pixel: as long as a fortieth of the shorter side to each direction, at least 3
/// pixels, and as thick as a twentieth of that.
/// @param rgb  CV_8UC3 in the order R, G, B.
void draw_markers(cv::Mat& rgb, std::span<const PixelPoint> points);

/// Twelve colours that are told apart at a glance, R G B, none of them black: for numbered parts of a picture; a
/// thirteenth part begins again with the first.
/// Source: M. Harrower, C. A. Brewer, ColorBrewer.org: an online tool for selecting colour schemes for maps, The
/// Cartographic Journal 40(1), 2003, 27-37 (scheme Paired, the strong colours first).
[[nodiscard]] const std::array<std::uint8_t, 3>& part_color(std::size_t part);

}  // namespace orvexa::model
