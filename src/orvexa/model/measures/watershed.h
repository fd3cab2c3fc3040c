#pragma once

#include <opencv2/core.hpp>

#include <vector>

#include "orvexa/model/measures/components.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// A relief inside a mask: whole numbers from 0, CV_32SC1. Pixels outside the mask are not looked at.
struct Relief {
  cv::Mat heights;
  cv::Mat mask;  ///< CV_8UC1 of 0 and 255
};

/// The summits of a relief that are far enough from higher ones. A summit is an 8-connected set of pixels of one height
/// without a higher neighbour in the mask; its place is that of its pixels nearest to their centroid. Summits are taken
/// from the highest to the lowest, of equal ones the one whose place comes first in raster order, and one whose place
/// is less than `min_distance` pixels from that of a summit of the same component taken before is left out. So every
/// component has at least one.
/// @param components  the 8-connected ones of the mask.
/// @return places in the order in which they were taken.
[[nodiscard]] std::vector<cv::Point> find_summits(const Relief& relief, const Components& components, int min_distance,
                                                  const RunContext& context = {});

/// Floods a relief from seeds downwards: the pixels of the mask are given away from the highest to the lowest, each to
/// the seed from which a neighbour (of 8) reached it first, along the ways that stay as high as they can. Linear in
/// pixels and heights; the same every time.
/// @param seeds  places in the mask; every component of the mask has at least one.
/// @return CV_32SC1: k at the pixels of seed k - 1, 0 outside the mask.
/// Source: L. Vincent, P. Soille, Watersheds in digital spaces: an efficient algorithm based on immersion simulations,
/// IEEE Trans. Pattern Analysis and Machine Intelligence 13(6), 1991, 583-598, doi:10.1109/34.87344; flooding from
/// markers: F. Meyer, Un algorithme optimal de ligne de partage des eaux, 8th AFCET Congress, 1991, 847-857.
[[nodiscard]] cv::Mat flood_from(const std::vector<cv::Point>& seeds, const Relief& relief,
                                 const RunContext& context = {});

/// Renumbers labels 1..n in the raster order of their first pixel.
/// @param labels  CV_32SC1, changed in place; labels above `count` do not occur.
/// @return the new label of old label k at [k - 1]; 0 for one without a pixel.
[[nodiscard]] std::vector<int> number_in_raster_order(int count, cv::Mat& labels, const RunContext& context = {});

}  // namespace orvexa::model
