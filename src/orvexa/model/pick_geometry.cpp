#include "orvexa/model/pick_geometry.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace orvexa::model {

namespace {

constexpr double whole_pixel_tolerance = 1e-6;

std::pair<int, int> covered(double centre, double size, int extent) {
  const double begin = std::floor((centre - size / 2) * extent + whole_pixel_tolerance);
  const double end = std::ceil((centre + size / 2) * extent - whole_pixel_tolerance);
  return {static_cast<int>(std::clamp(begin, 0.0, double(extent))),
          static_cast<int>(std::clamp(end, 0.0, double(extent)))};
}

int pixel_at(double position, int extent) {
  if (!(position >= 0 && position <= 1)) throw std::invalid_argument("A point must lie inside the image (0 to 1).");
  return std::min(extent - 1, static_cast<int>(std::floor(position * extent + whole_pixel_tolerance)));
}

}  // namespace

PixelPoint pixel_of(const PickPoint& point, int height, int width) {
  return {pixel_at(point.x_norm, width), pixel_at(point.y_norm, height)};
}

PixelRect pixels_of(const PickRect& rect, int height, int width) {
  for (const double number : {rect.cx_norm, rect.cy_norm, rect.w_norm, rect.h_norm}) {
    if (!std::isfinite(number)) throw std::invalid_argument("A rectangle's numbers must be finite.");
  }
  if (rect.w_norm < 0 || rect.h_norm < 0) throw std::invalid_argument("A rectangle's sizes must not be negative.");
  const auto [x0, x1] = covered(rect.cx_norm, rect.w_norm, width);
  const auto [y0, y1] = covered(rect.cy_norm, rect.h_norm, height);
  return {x0, y0, x1, y1};
}

}  // namespace orvexa::model
