#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

#include "orvexa/model/run_context.h"

namespace orvexa::model {

// Measures of the shape of a set of pixels, given as a CV_8UC1 picture of 0 and 255 (usually the box of a region);
// everything outside the picture is background. Lengths are in pixels, areas in pixels squared. Corners are those of
// the pixels: the pixel in column x covers [x, x + 1]. What goes through the rows of a picture looks at the context's
// cancellation flag in each of them.

/// How many pixels are set.
[[nodiscard]] std::int64_t pixel_area(const cv::Mat& picture);

/// Perimeter by Crofton's formula with lines in 4 directions: pi / 4 * (I0 + I90 + (I45 + I135) / sqrt(2)), where I is
/// how often the lines of that direction enter the set. It includes the rims of holes; one pixel has 2.681.
/// Source: D. Legland, K. Kiêu, M.-F. Devaux, Computation of Minkowski measures on 2D and 3D binary images, Image
/// Analysis & Stereology 26(2), 2007, 83-92, doi:10.5566/ias.v26.p83-92.
[[nodiscard]] double crofton_perimeter(const cv::Mat& picture, const RunContext& context = {});

/// Perimeter as the length of the chain of border pixels (set pixels with a 4-neighbour that is not set), each weighted
/// 1, sqrt(2) or (1 + sqrt(2)) / 2 by its neighbours in the border; one pixel has 0.
/// Source: K. Benkrid, D. Crookes, Design and FPGA Implementation of a Perimeter Estimator, Queen's University of
/// Belfast, 2000.
[[nodiscard]] double chain_perimeter(const cv::Mat& picture, const RunContext& context = {});

/// The convex hull of the corners of the set pixels.
struct CornerHull {
  std::vector<cv::Point> vertices;  ///< counter-clockwise seen with y downwards, no three in a line; empty for no pixel
  [[nodiscard]] double area() const;
  [[nodiscard]] double perimeter() const;
  /// The longest distance between two corners (ISO 13322-1: maximum Feret diameter).
  [[nodiscard]] double max_feret() const;
  /// The least distance between two parallel lines that hold the hull between them (minimum Feret diameter).
  [[nodiscard]] double min_feret() const;
};
/// Source of the construction: A. M. Andrew, Another efficient algorithm for convex hulls in two dimensions,
/// Information Processing Letters 9(5), 1979, 216-219.
[[nodiscard]] CornerHull corner_hull(const cv::Mat& picture, const RunContext& context = {});

/// Centroid and the ellipse with equal second moments.
struct EllipseFit {
  double centroid_x = 0;  ///< of pixel centres, in columns of the picture: the first column is 0
  double centroid_y = 0;
  double major_axis = 0;  ///< full length, 4 * sqrt(larger eigenvalue of the covariance of pixel centres); one pixel: 0
  double minor_axis = 0;
  double eccentricity = 0;  ///< sqrt(1 - smaller eigenvalue / larger eigenvalue); 0 for one pixel
};
/// Source: M.-K. Hu, Visual pattern recognition by moment invariants, IRE Trans. Information Theory 8(2), 1962,
/// 179-187.
/// @throws std::invalid_argument when no pixel is set.
[[nodiscard]] EllipseFit fit_ellipse(const cv::Mat& picture, const RunContext& context = {});

/// All of them for one set of pixels, by names as the operations use them.
struct ShapeMeasures {
  std::int64_t area = 0;
  double perimeter = 0;  ///< Crofton
  double hull_area = 0;
  double hull_perimeter = 0;
  double max_feret = 0;
  double min_feret = 0;
  EllipseFit ellipse;

  [[nodiscard]] double solidity() const;     ///< area / hull area
  [[nodiscard]] double circularity() const;  ///< 4 pi A / P^2, not clamped
};
/// @throws std::invalid_argument when no pixel is set.
[[nodiscard]] ShapeMeasures measure_shape(const cv::Mat& picture, const RunContext& context = {});

}  // namespace orvexa::model
