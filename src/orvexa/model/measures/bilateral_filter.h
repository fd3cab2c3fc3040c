#pragma once

#include <opencv2/core.hpp>

#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// The bilateral mean around each pixel p over the pixels q with |q - p| <= radius: weights
/// exp(-|q - p|^2 / (2 sigma_space^2)) exp(-(v_q - v_p)^2 / (2 sigma_value^2)), rounded to float. Beyond the border the
/// nearest pixel of the image counts again. Values that are not finite do not count and stay as they are. In float
/// the second exponential is interpolated in a table (within 2e-7 of its value at 0) and 0 beyond 9 sigma.
/// Source: C. Tomasi, R. Manduchi, Bilateral Filtering for Gray and Color Images, ICCV 1998, 839-846.
/// @param plane  CV_8UC1, CV_16UC1 or CV_32FC1.
/// @param radius  in pixels, at least 1; the work grows with its square.
/// @param sigma_value  above 0, in counts.
/// @return CV_32FC1
[[nodiscard]] cv::Mat bilateral_filtered(const cv::Mat& plane, int radius, double sigma_space, double sigma_value,
                                         const RunContext& context);

}  // namespace orvexa::model
