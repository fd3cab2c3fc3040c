#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/measures/histogram.h"

namespace orvexa::model {

/// How a level between two classes of pixels is found.
enum class AutoThresholdMethod { otsu, triangle, li };

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
/// equally good levels Otsu gives the lowest, triangle the one farthest from the peak. Absent when the values have no
/// contrast (none, or all equal): there is nothing to separate.
///
/// - otsu: the greatest variance between the classes, n0 n1 (m0 - m1)^2.
/// - triangle: the bin farthest below the line from the histogram's peak to the end of its longer tail.
/// - li: the fixed point of t = (m1 - m0) / (ln m1 - ln m0), which has minimum cross entropy, reached from the mean;
///   values are taken above the lowest one, because their logarithms must exist.
///
/// m0, m1, n0, n1 are mean and number of the values up to t and above it.
[[nodiscard]] std::optional<double> auto_threshold_level(const Histogram& histogram, AutoThresholdMethod method);

}  // namespace orvexa::model
