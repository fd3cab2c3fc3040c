#pragma once

#include <opencv2/core.hpp>

#include <functional>
#include <span>

#include "orvexa/model/mask.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

// Measures of the square window of (2 radius + 1)^2 pixels around each pixel. A window sees the pixels of the image
// that are in the mask and finite; what lies outside the image is not there. The work hardly depends on the radius.
// Planes are CV_8UC1, CV_16UC1 or
// CV_32FC1; a null mask has every pixel; radius >= 1. Rows are handed out in any order and from several threads.

/// What is known of a window; undefined (NaN) when it sees no pixel.
struct WindowMoments {
  double mean = 0;
  double sd = 0;  ///< of the population
};

/// Mean and standard deviation in counts. Sums are whole numbers, so neighbours with equal windows have equal moments
/// and a flat window has its value and sd 0. Floats are rounded to multiples of 2^-42 of the largest magnitude; where
/// magnitudes that follow each other in size are 2^8 or more apart (of their powers of two), those below have a largest
/// of their own, so that an outlier changes no window that does not see it.
void for_each_row_of_moments(const cv::Mat& plane, const Mask* mask, int radius, const RunContext& context,
                             const std::function<void(int y, std::span<const WindowMoments> moments)>& row);

/// Highest value less lowest value in counts, exact; NaN when the window sees no pixel.
void for_each_row_of_ranges(const cv::Mat& plane, const Mask* mask, int radius, const RunContext& context,
                            const std::function<void(int y, std::span<const double> ranges)>& row);

/// Shannon entropy in bits of the values rounded to 256 levels from 0 to white (those outside count at the ends):
/// -sum of p log2 p, where p is the share of a level among the pixels of the window. NaN when it sees no pixel. Exact
/// to 1e-11 whatever came before, because the sums are whole numbers.
/// @param white  counts.
/// @param radius  50 at most.
/// Source: C. E. Shannon, A Mathematical Theory of Communication, Bell System Technical Journal 27(3), 1948, 379-423.
void for_each_row_of_entropies(const cv::Mat& plane, double white, const Mask* mask, int radius,
                               const RunContext& context,
                               const std::function<void(int y, int x, std::span<const double> entropies)>& piece);

}  // namespace orvexa::model
