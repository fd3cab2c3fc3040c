#pragma once

#include <cstdint>
#include <span>

#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// Statistics of a set of numbers. Standard deviation and moments are those of the population; quantiles are of type 7:
/// linear between the order statistics around (n - 1) p.
/// Source of the quantiles: R. J. Hyndman, Y. Fan, Sample quantiles in statistical packages, The American Statistician
/// 50(4), 1996, 361-365.
struct Statistics {
  std::int64_t n = 0;
  std::int64_t n_invalid = 0;  ///< left out: NaN, infinite, without meaning
  // All below are 0 when n is 0.
  double sum = 0;
  double mean = 0;
  double sd = 0;
  double min = 0;
  double max = 0;
  double median = 0;
  double mad = 0;  ///< median of the absolute deviations from the median, not scaled
  double p5 = 0;
  double p25 = 0;
  double p75 = 0;
  double p95 = 0;
  double skew = 0;      ///< m3 / m2^1.5; 0 when all numbers are equal
  double kurtosis = 0;  ///< m4 / m2^2 - 3; 0 when all numbers are equal
};

/// How often a count occurs.
struct ValueCount {
  std::int32_t value = 0;
  std::int64_t count = 0;  ///< at least 1
};

/// Exact statistics of counts.
/// @param values  ascending, each value once.
[[nodiscard]] Statistics describe_counts(std::span<const ValueCount> values);
/// The same to the last digit, of counts one by one.
/// @param sorted  ascending.
[[nodiscard]] Statistics describe_sorted(std::span<const std::uint16_t> sorted);

/// Exact statistics of any finite numbers, which are left as they are. Large sets are looked at by several threads; the
/// result never depends on how many.
[[nodiscard]] Statistics describe_values(std::span<const double> values, const RunContext& context);

}  // namespace orvexa::model
