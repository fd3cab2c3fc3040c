#pragma once

#include <opencv2/core.hpp>

#include <string_view>

#include "orvexa/model/image.h"
#include "orvexa/model/operation_base.h"
#include "orvexa/model/pick_geometry.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// 255 at the pixels that a picked shape covers, else 0 (CV_8UC1 of the given size). For polygon and ellipse a pixel is
/// covered when its centre lies inside, for a rectangle as `pixels_of` says.
/// @param points  checked, in fractions of the image; even-odd rule.
[[nodiscard]] cv::Mat drawn_polygon(const Value& points, Shape shape, const RunContext& context);
[[nodiscard]] cv::Mat drawn_ellipse(const PickRect& box, Shape shape, const RunContext& context);
[[nodiscard]] cv::Mat drawn_rect(const PickRect& rect, Shape shape, const RunContext& context);

/// @param points  a checked list of points.
/// @throws std::invalid_argument with a sentence when they are too few for a polygon.
void check_polygon(std::string_view operation, std::string_view parameter, const Value& points);

/// What a pixel of a polygon or an ellipse is, in words for descriptions.
[[nodiscard]] std::string_view pixel_centre_rule();
/// The published source of both.
[[nodiscard]] std::string_view scan_conversion_source();

}  // namespace orvexa::model
