#pragma once

#include <opencv2/core.hpp>

#include <array>
#include <cstdint>
#include <vector>

#include "orvexa/model/measures/pixel_rows.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

// Measures of the shape of a set of pixels, given as a CV_8UC1 picture of 0 and 255 (usually the box of a region);
// everything outside the picture is background. Lengths are in pixels, areas in pixels squared. Corners are those of
// the pixels: the pixel in column x covers [x, x + 1]. What goes through the rows of a picture looks at the context's
// cancellation flag in each of them.
//
// Positions are those of the pixels' centres: the centre of the first pixel is (0, 0), its corners are half a pixel
// away. Directions are in degrees from 0 to below 180, counter-clockwise from the x axis as the picture is looked at (y
// points down in the picture): 0 = along a row, 45 = rising to the right, 90 = along a column.

/// The direction of a vector.
[[nodiscard]] double direction_degrees(double dx, double dy);

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

/// A Feret diameter: the distance of two parallel lines that hold a shape between them, measured across them.
struct FeretDiameter {
  double length = 0;
  double direction = 0;  ///< across the lines, in degrees
  double across = 0;     ///< the extent of the shape along the lines
  cv::Point2d from;      ///< ends of a line of that length and direction, one of them a corner, as positions
  cv::Point2d to;
};

struct EnclosingRectangle {
  double length = 0;     ///< the longer side
  double width = 0;      ///< the shorter side
  double direction = 0;  ///< of the longer side in degrees; where both are equal, of the one below 90
  cv::Point2d centre;
  std::array<cv::Point2d, 4> corners;
};

struct EnclosingCircle {
  double radius = 0;
  cv::Point2d centre;
};

/// The convex hull of the corners of the set pixels.
struct CornerHull {
  /// Corners as whole numbers: (x, y) is the one at the upper left of the pixel in column x of row y. Counter-clockwise
  /// seen with y downwards, no three in a line; empty for no pixel.
  std::vector<cv::Point> vertices;
  [[nodiscard]] double area() const;
  [[nodiscard]] double perimeter() const;
  /// The longest distance between two corners (ISO 13322-1: maximum Feret diameter).
  [[nodiscard]] double max_feret() const;
  /// The least distance between two parallel lines that hold the hull between them (minimum Feret diameter).
  [[nodiscard]] double min_feret() const;

  // The following are for a hull that is not empty. Of several answers of the same size (within a factor of 1e-12) the
  // one with the least extent across, then the one with the least direction is given.

  /// The greatest Feret diameter, between two corners.
  [[nodiscard]] FeretDiameter greatest_feret() const;
  /// The least Feret diameter: one of its lines holds an edge of the hull.
  [[nodiscard]] FeretDiameter least_feret() const;
  /// The rectangle of the least area; one of its sides holds an edge of the hull. Of several the one with the shortest
  /// longer side.
  /// Source: G. T. Toussaint, Solving geometric problems with the rotating calipers, Proc. IEEE MELECON, 1983, A10.02;
  /// H. Freeman, R. Shapira, Determining the minimum-area encasing rectangle for an arbitrary closed curve,
  /// Communications of the ACM 18(7), 1975, 409-413, doi:10.1145/360881.360919.
  [[nodiscard]] EnclosingRectangle least_rectangle() const;
  /// Source: E. Welzl, Smallest enclosing disks (balls and ellipsoids), New Results and New Trends in Computer Science,
  /// LNCS 555, 1991, 359-370, doi:10.1007/BFb0038202.
  [[nodiscard]] EnclosingCircle least_circle() const;
};
/// Source of the construction: A. M. Andrew, Another efficient algorithm for convex hulls in two dimensions,
/// Information Processing Letters 9(5), 1979, 216-219.
[[nodiscard]] CornerHull corner_hull(const PixelRows& pixels, const RunContext& context = {});

/// Centroid and the ellipse with equal second moments.
struct EllipseFit {
  double centroid_x = 0;  ///< of pixel centres, in columns of the picture: the first column is 0
  double centroid_y = 0;
  double major_axis = 0;  ///< full length, 4 * sqrt(larger eigenvalue of the covariance of pixel centres); one pixel: 0
  double minor_axis = 0;
  double eccentricity = 0;     ///< sqrt(1 - smaller eigenvalue / larger eigenvalue); 0 for one pixel
  double direction = 0;        ///< of the major axis in degrees
  bool has_direction = false;  ///< whether the moments differ with the direction (by more than a factor of 1e-12)
};
/// Source: M.-K. Hu, Visual pattern recognition by moment invariants, IRE Trans. Information Theory 8(2), 1962,
/// 179-187.
/// @throws std::invalid_argument when no pixel is set.
[[nodiscard]] EllipseFit fit_ellipse(const PixelRows& pixels, const RunContext& context = {});

/// The seven invariants of Hu of the pixels' centres, from central moments normalised by the area. They do not depend
/// on position or, but for the grid of pixels, on size and direction; the seventh changes its sign in a mirror. Source:
/// M.-K. Hu, 1962, as above.
/// @throws std::invalid_argument when no pixel is set.
[[nodiscard]] std::array<double, 7> hu_moments(const PixelRows& pixels, const RunContext& context = {});

/// How well the set agrees with its mirror pictures.
struct MirrorAgreement {
  double left_right = 0;  ///< pixels in both / pixels in either, mirrored at the vertical line through the centroid
  double top_bottom = 0;  ///< the same at the horizontal line
};
/// The lines lie at the multiple of half a pixel that is nearest to the centroid (of two the one to the right and
/// below), so that pixels fall on pixels.
/// @throws std::invalid_argument when no pixel is set.
[[nodiscard]] MirrorAgreement mirror_agreement(const cv::Mat& picture, const RunContext& context = {});

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
