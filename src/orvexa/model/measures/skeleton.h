#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// The lines that are left of a set of pixels when its border is taken off again and again (thinning), and their graph.
///
/// Two pixels of the skeleton are joined when they share a side, or a corner and no third pixel of the skeleton shares
/// a side with both. An end is a pixel that is joined with one other, a junction pixel one that is joined with three or
/// more; junction pixels that are joined are one junction. Branches are what remains connected when the junction pixels
/// are taken out.
struct Skeleton {
  std::vector<cv::Point> pixels;  ///< in raster order, in columns and rows of the picture
  double length = 0;              ///< sum over the joins: 1 over a side, sqrt(2) over a corner; 0 for a single pixel
  std::int64_t branches = 0;      ///< a closed line and a single pixel are one as well
  std::int64_t ends = 0;
  std::int64_t junctions = 0;
};

/// Thinning in alternate half-steps until nothing changes. In time linear in the pixels: only those whose neighbours
/// changed are looked at again. Outside the picture nothing is set. A block of 2 x 2 pixels that stands alone, which
/// both half-steps would remove, keeps its upper left pixel, so that no part of the set vanishes.
/// @param picture  CV_8UC1 of 0 and 255; may be empty.
/// @param prune  px: a line from an end to a junction that is at most this long is taken off, its junction pixel stays;
/// all of them at once, so that what becomes an end by this stays. 0 = none.
/// Source: T. Y. Zhang, C. Y. Suen, A fast parallel algorithm for thinning digital patterns, Communications of the ACM
/// 27(3), 1984, 236-239, doi:10.1145/357994.358023.
[[nodiscard]] Skeleton find_skeleton(const cv::Mat& picture, double prune, const RunContext& context = {});

}  // namespace orvexa::model
