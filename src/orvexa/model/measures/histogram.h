#pragma once

#include <cstdint>
#include <vector>

#include "orvexa/model/mask.h"
#include "orvexa/model/measures/bands.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// Counts of values inside a mask. Integers have one bin a count (256 or 65536), float has 4096 bins over [lowest,
/// highest finite value].
struct Histogram {
  std::vector<std::int64_t> bins;
  double first = 0;            ///< the value of bin 0 (its left edge for float)
  double step = 1;             ///< values a bin
  std::int64_t n = 0;          ///< values counted
  std::int64_t n_invalid = 0;  ///< NaN and infinite values left out
  double min = 0;              ///< lowest value counted; 0 when there is none
  double max = 0;
  double rounding = 0;  ///< values that are not farther apart are the same value, calculated along other ways

  [[nodiscard]] bool has_contrast() const { return n > 0 && max - min > rounding; }
  /// A bin's level: the count for integers, the bin's right edge for float; foreground is value > level.
  [[nodiscard]] double level(std::size_t bin) const;
};

/// @param mask  null = every pixel.
[[nodiscard]] Histogram masked_histogram(const Band& band, const Mask* mask, const RunContext& context);
/// By how much values of a map of doubles may differ from rounding alone: 1e-12, and above 1 that part of the greatest.
[[nodiscard]] double rounding_of_map(double greatest_magnitude);
/// The same over a map of doubles (an index), where `rounding` is that of a map; NaN is invalid.
[[nodiscard]] Histogram masked_histogram(const cv::Mat& values, const Mask* mask, const RunContext& context);

}  // namespace orvexa::model
