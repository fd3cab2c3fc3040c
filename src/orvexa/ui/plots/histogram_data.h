#pragma once

#include <QString>
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvexa/model/entities/capture_set.h"
#include "orvexa/model/mask.h"
#include "orvexa/model/run_context.h"

namespace orvexa::ui {

/// How often each value occurs, for a plot: in bins of equal width, in the unit of the limits that are set in it.
struct HistogramData {
  std::string name = {};                  ///< of the band or index
  QString unit = {};                      ///< "fraction of white"; empty for none
  double first = 0;                       ///< the left edge of bin 0
  double step = 1;                        ///< the width of a bin; positive
  std::vector<std::int64_t> whole = {};   ///< of all pixels; not empty
  std::vector<std::int64_t> inside = {};  ///< of those that the steps before left; as many bins
  /// The bins are counts of an integer picture, whose middles are the values: there is nothing between them.
  bool is_of_counts = false;

  [[nodiscard]] double last() const { return first + step * static_cast<double>(whole.size()); }
  /// The value that a place on the axis means: the nearest count, else a round number.
  [[nodiscard]] double snapped(double value) const;
  /// Percent of the values inside that lie below a value, with those in its bin as far as it reaches into it.
  [[nodiscard]] double percent_below(double value) const;
  /// The value below which that many percent of the values inside lie; the middle of the axis when there are none.
  [[nodiscard]] double value_at_percent(double percent) const;
};

/// An operation whose parameters are limits on the values of a band or index, so that people can set them in its
/// histogram.
struct HistogramLimits {
  std::string_view operation;
  enum class Axis { band, percentiles_of_band, index } axis;
  std::string_view low;  ///< names of the parameters
  std::string_view high;
  /// Which values the limits keep.
  enum class Kept { between, above_low, unknown } kept;
};

/// Null when the operation has no such limits.
[[nodiscard]] const HistogramLimits* histogram_limits(std::string_view operation);

/// What a histogram is made of. Owns its data.
struct HistogramQuestion {
  std::shared_ptr<const model::CaptureSet> capture;  ///< not null
  std::shared_ptr<const model::CaptureSet> before;   ///< after the steps before, for its mask; null = no mask
  const HistogramLimits* limits = nullptr;           ///< not null
  common::Value params;                              ///< completed and checked
};
/// Whether two questions have the same answer: limits and what else does not choose values are not looked at.
[[nodiscard]] bool is_same_histogram(const HistogramQuestion& a, const HistogramQuestion& b);
/// Any thread.
/// @throws std::runtime_error with a sentence when there is no such band; model::CancelledError.
[[nodiscard]] HistogramData make_histogram(const HistogramQuestion& question, const model::RunContext& context);

}  // namespace orvexa::ui
