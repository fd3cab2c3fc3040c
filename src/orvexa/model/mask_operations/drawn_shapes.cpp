#include "orvexa/model/mask_operations/drawn_shapes.h"

#include <fmt/format.h>

#include <functional>
#include <stdexcept>
#include <vector>

#include "orvexa/model/mask_operations/rectangles.h"
#include "orvexa/model/measures/scan_conversion.h"

namespace orvexa::model {

namespace {

constexpr std::size_t fewest_corners = 3;

/// @param fill  paints the rows y0 to y1 - 1 of the picture.
cv::Mat drawn(Shape shape, const RunContext& context,
              const std::function<void(int y0, int y1, cv::Mat& pixels)>& fill) {
  cv::Mat pixels(shape.height, shape.width, CV_8UC1);
  for_each_stripe(shape.height, shape.width, context, [&](int y0, int y1) {
    pixels.rowRange(y0, y1).setTo(0);
    fill(y0, y1, pixels);
  });
  return pixels;
}

}  // namespace

cv::Mat drawn_polygon(const Value& points, Shape shape, const RunContext& context) {
  const std::vector<cv::Point2d> corners = polygon_corners(points, shape);
  return drawn(shape, context, [&](int y0, int y1, cv::Mat& pixels) { fill_polygon(corners, y0, y1, 255, pixels); });
}

cv::Mat drawn_ellipse(const PickRect& box, Shape shape, const RunContext& context) {
  return drawn(shape, context, [&](int y0, int y1, cv::Mat& pixels) { fill_ellipse(box, y0, y1, 255, pixels); });
}

cv::Mat drawn_rect(const PickRect& rect, Shape shape, const RunContext& context) {
  const cv::Rect covered = cv_rect(pixels_of(rect, shape.height, shape.width));
  return drawn(shape, context, [&](int y0, int y1, cv::Mat& pixels) {
    pixels(covered & cv::Rect(0, y0, shape.width, y1 - y0)).setTo(255);
  });
}

void check_polygon(std::string_view operation, std::string_view parameter, const Value& points) {
  if (points.size() >= fewest_corners) return;
  throw std::invalid_argument(fmt::format("{}: parameter \"{}\" has {} {}, but a polygon needs at least three.",
                                          operation, parameter, points.size(),
                                          points.size() == 1 ? "point" : "points"));
}

std::string_view pixel_centre_rule() {
  return "A pixel belongs to it when its centre, half a pixel from its sides, lies inside.";
}

std::string_view scan_conversion_source() {
  return "J. D. Foley, A. van Dam, S. K. Feiner, J. F. Hughes, Computer Graphics: Principles and Practice, 2nd "
         "edition, Addison-Wesley 1990";
}

}  // namespace orvexa::model
