#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <span>
#include <vector>

#include "orvexa/common/value.h"
#include "orvexa/model/image.h"
#include "orvexa/model/pick_geometry.h"

namespace orvexa::model {

// Which pixels a shape covers: those whose centre lies in it; the pixel in column x has its centre at x + 0.5. All
// numbers are finite; what lies outside the picture is left out.
// Source: J. D. Foley, A. van Dam, S. K. Feiner, J. F. Hughes, Computer Graphics: Principles and Practice, 2nd edition,
// Addison-Wesley 1990.

/// Corners in pixels from a checked list of points in fractions of an image.
[[nodiscard]] std::vector<cv::Point2d> polygon_corners(const common::Value& points, Shape shape);

/// Gives a value to the pixels of rows y0 to y1 - 1 inside a polygon by the even-odd rule: a ray from them crosses its
/// sides an odd number of times. A centre on a side belongs to the polygon on the right of it or below it, so that
/// polygons that share a side neither overlap nor leave a gap.
/// @param pixels  CV_8UC1
void fill_polygon(std::span<const cv::Point2d> corners, int y0, int y1, std::uint8_t value, cv::Mat& pixels);

/// The same for the ellipse that touches the sides of a box; a centre on it belongs to it.
void fill_ellipse(const PickRect& box, int y0, int y1, std::uint8_t value, cv::Mat& pixels);

/// Pixels [x0, x1) of row y.
struct PixelRow {
  int y = 0;
  int x0 = 0;
  int x1 = 0;
};

/// The pixels whose centre lies in a convex polygon of whole coordinates and not only on its rim, by exact arithmetic.
/// Rows without a pixel are left out.
[[nodiscard]] std::vector<PixelRow> rows_of_hull(std::span<const cv::Point> vertices);

}  // namespace orvexa::model
