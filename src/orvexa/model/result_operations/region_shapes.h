#pragma once

#include <opencv2/core.hpp>

#include <cstddef>
#include <vector>

#include "orvexa/common/parallel.h"
#include "orvexa/model/measures/region_set.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// `measure(region)` for the whole mask (first element) and each region; the default value where there is no pixel.
/// Regions are measured side by side.
template <typename Measure>
[[nodiscard]] auto measure_regions(const RegionSet& regions, const RunContext& context, const Measure& measure) {
  using Result = decltype(measure(regions.whole()));
  const std::vector<Region>& all = regions.regions();
  std::vector<Result> results(all.size() + 1);
  common::parallel_for(regions.is_single() ? 1 : results.size(), [&](std::size_t k) {
    context.check();
    const Region& region = k == 0 ? regions.whole() : all[k - 1];
    if (region.area > 0) results[k] = measure(region);
  });
  if (regions.is_single()) results[1] = results[0];
  return results;
}

/// The same as `measure(picture)`, where the picture is that of the region's box.
template <typename Measure>
[[nodiscard]] auto measure_pictures(const RegionSet& regions, const RunContext& context, const Measure& measure) {
  return measure_regions(regions, context,
                         [&](const Region& region) { return measure(regions.crop(region, context)); });
}

/// The same as `measure(rows)`, for what can be told from the runs of the pixels.
template <typename Measure>
[[nodiscard]] auto measure_rows(const RegionSet& regions, const RunContext& context, const Measure& measure) {
  return measure_regions(regions, context, [&](const Region& region) { return measure(regions.rows(region)); });
}

/// What was measured of the row with that index: the whole mask has -1.
template <typename Result>
[[nodiscard]] const Result& measured_of(const std::vector<Result>& results, int index) {
  const int place = index + 1;
  return results.at(static_cast<std::size_t>(place));
}

}  // namespace orvexa::model
