#pragma once

#include <opencv2/core.hpp>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// Values from `low` to `high`, both included, in the counts of the image (or the values of the map) that is looked at.
struct ValueRange {
  double low = 0;
  double high = 0;
  bool is_inverted = false;  ///< the values outside instead
};

/// 255 where a pixel's value lies in the range, 0 elsewhere; NaN and infinite values lie neither inside nor outside.
/// @param plane  CV_8UC1, CV_16UC1, CV_32FC1 or CV_64FC1; compared in its own type without conversion of the picture.
[[nodiscard]] cv::Mat pixels_within(const cv::Mat& plane, const ValueRange& range, const RunContext& context);

/// Everything above a level, or everything up to it.
[[nodiscard]] ValueRange values_above(double level);
[[nodiscard]] ValueRange values_up_to(double level);

/// A limit given as a fraction of white, in counts of the band. In an integer image a limit within a millionth of white
/// of a whole count means that count (six decimals always suffice, and no other count can be meant); in a float image
/// it is the nearest float.
[[nodiscard]] double low_limit_in_counts(const Band& band, double fraction);
[[nodiscard]] double high_limit_in_counts(const Band& band, double fraction);
/// That millionth of white.
[[nodiscard]] double rounding_in_counts(const Band& band);
/// What the values of a band of the capture are: "counts", or "reflectance" where it has a reference.
[[nodiscard]] const char* unit_of(const Band& band);

}  // namespace orvexa::model
