#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/measures/histogram.h"

namespace orvexa::model {

/// How a level between two classes of pixels is found.
enum class AutoThresholdMethod { otsu, li, yen, triangle, isodata, minimum, mean, max_entropy };

struct AutoThresholdMethodInfo {
  AutoThresholdMethod method;
  std::string_view name;
  std::string_view description;
  std::string_view source;
};

/// Every method, in the order of menus.
[[nodiscard]] std::span<const AutoThresholdMethodInfo> auto_threshold_methods();
[[nodiscard]] std::vector<std::string> auto_threshold_method_names();
/// @throws std::invalid_argument for an unknown name.
[[nodiscard]] AutoThresholdMethod auto_threshold_method(std::string_view name);

/// The level in the histogram's own values: the last level of the background class, so foreground is value > level. Of
/// equally good levels it is the lowest; triangle takes the one farthest from the peak. Absent when the values have no
/// contrast (none, or all equal), for there is nothing to separate, and for `minimum` when the histogram does not come
/// to have two peaks.
///
/// - otsu: the greatest variance between the classes, n0 n1 (m0 - m1)^2.
/// - li: the fixed point of t = (m1 - m0) / (ln m1 - ln m0), which has minimum cross entropy, reached from the mean;
///   values are taken above the lowest one, because their logarithms must exist.
/// - yen: the greatest -ln(sum of p^2 up to t * sum of p^2 above t) + 2 ln(P (1 - P)), where p is the share of a bin
///   and P the share up to t.
/// - triangle: the bin farthest below the line from the histogram's peak to the end of its longer tail.
/// - isodata: the lowest t that is (m0 + m1) / 2 without its fraction.
/// - minimum: the lowest bin between the two peaks that are left when the histogram is replaced by its means over three
///   bins (at the ends with the end bin twice) until fewer than three are left, at most 10,000 times. A peak is where
///   counts fall after they rose; the lowest bin may be one, the highest is none.
/// - mean: the mean.
/// - max_entropy: the greatest sum of the entropies of the two classes.
///
/// m0, m1, n0, n1 are mean and number of the values up to t and above it; bins of float are taken at their middles.
[[nodiscard]] std::optional<double> auto_threshold_level(const Histogram& histogram, AutoThresholdMethod method,
                                                         const RunContext& context = {});

/// Why there is no level, for a note: begins with its code, "no_contrast: all pixels have the same value in MSP.NIR, so
/// the mask is empty".
/// @param what  the name of the band.
[[nodiscard]] std::string no_level_text(const Histogram& histogram, std::string_view what);

}  // namespace orvexa::model
