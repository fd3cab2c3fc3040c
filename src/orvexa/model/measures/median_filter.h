#pragma once

#include <opencv2/core.hpp>

#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// The largest radius of a median.
inline constexpr int largest_median_radius = 100;

/// The median of the square window of (2 radius + 1)^2 pixels around each pixel, of the plane's own type; beyond the
/// border the nearest pixel of the image counts again. In float, values that are not finite do not count and stay as
/// they are; of an even number of values that count the median is the upper of the two in the middle. Exact: 8 bit by
/// the library, otherwise with histograms of ranks that move along the rows, several rows sharing one.
/// Sources: T. S. Huang, G. J. Yang, G. Y. Tang, A fast two-dimensional median filtering algorithm, IEEE Trans. ASSP
/// 27(1), 1979, 13-18; B. Weiss, Fast median and bilateral filtering, ACM Trans. Graphics 25(3), 2006, 519-526.
/// @param plane  CV_8UC1, CV_16UC1 or CV_32FC1.
/// @param radius  1 to `largest_median_radius`.
[[nodiscard]] cv::Mat median_filtered(const cv::Mat& plane, int radius, const RunContext& context);

}  // namespace orvexa::model
