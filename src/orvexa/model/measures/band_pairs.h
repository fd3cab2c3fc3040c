#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "orvexa/model/measures/bands.h"
#include "orvexa/model/measures/region_pixels.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// How two planes go together over the pixels where both have a finite value.
struct PairCorrelation {
  std::int64_t n = 0;
  bool first_is_flat = false;  ///< all its values are equal
  bool second_is_flat = false;
  /// Pearson's coefficient of the values and of their ranks (Spearman; equal values share the mean of their ranks).
  /// Absent where n is below 2 or a plane is flat.
  std::optional<double> pearson;
  std::optional<double> spearman;
};

/// A plane's values as numbers that sort as they do, one a pixel of the mask, sorted by group.
class SortableValues {
 public:
  SortableValues(const Band& band, const RegionPixels& pixels, const RunContext& context);

  static constexpr std::uint32_t none = UINT32_MAX;  ///< not a finite number
  [[nodiscard]] std::span<const std::uint32_t> of(std::size_t group) const { return _keys.of(group); }
  [[nodiscard]] double value(std::uint32_t key) const;

 private:
  bool _is_float;
  RegionPixels::Gathered<std::uint32_t> _keys;
};

/// Of every region of the set that the values were taken from.
[[nodiscard]] std::vector<PairCorrelation> correlate(const SortableValues& first, const SortableValues& second,
                                                     std::size_t group_count, const RunContext& context);

}  // namespace orvexa::model
