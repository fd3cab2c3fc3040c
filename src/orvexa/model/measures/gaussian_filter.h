#pragma once

#include <opencv2/core.hpp>

#include <functional>
#include <span>
#include <vector>

#include "orvexa/model/mask.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// The weights of a sampled Gaussian from its centre outwards, radius + 1 of them, where the radius is 4 sigma rounded
/// half up; the whole kernel, centre once and all others twice, adds up to 1.
/// @param sigma  above 0, in pixels.
[[nodiscard]] std::vector<double> gaussian_weights(double sigma);

/// What a window that reaches over the border of the image finds there.
enum class GaussianBorder {
  replicated,  ///< the nearest pixel of the image again
  left_out     ///< nothing: the weights inside are scaled up to 1
};

/// Gaussian means of one channel, in double, handed out row by row; rows come in any order and from several threads.
/// Values that are not finite and pixels outside the mask do not count: the other weights are scaled up to 1. Where
/// nothing counts the mean is NaN. The work does not grow with sigma from 8 pixels on; means are rounded to about 1e-15
/// of the largest magnitude in the picture.
/// @param plane  CV_8UC1, CV_16UC1 or CV_32FC1.
/// @param mask  null = every pixel.
/// @param row  gets y and the means of that row.
void for_each_gaussian_row(const cv::Mat& plane, const Mask* mask, double sigma, GaussianBorder border,
                           const RunContext& context,
                           const std::function<void(int y, std::span<const double> means)>& row);

}  // namespace orvexa::model
