#pragma once

#include <opencv2/core.hpp>

#include "orvexa/common/value.h"
#include "orvexa/model/pick_geometry.h"

namespace orvexa::model {

/// The JSON form [cx, cy, w, h] of the rectangle that is the whole image.
[[nodiscard]] inline common::Value whole_image_rect() {
  return common::Value::array({0.5, 0.5, 1.0, 1.0});
}

/// From a checked parameter of type rect.
[[nodiscard]] inline PickRect pick_rect_from(const common::Value& rect) {
  return {rect.at(0).get<double>(), rect.at(1).get<double>(), rect.at(2).get<double>(), rect.at(3).get<double>()};
}

/// The library's form of a rectangle; of an empty one, a rectangle without pixels at the image's corner.
[[nodiscard]] inline cv::Rect cv_rect(const PixelRect& rect) {
  return rect.is_empty() ? cv::Rect() : cv::Rect(cv::Point(rect.x0, rect.y0), cv::Point(rect.x1, rect.y1));
}

}  // namespace orvexa::model
