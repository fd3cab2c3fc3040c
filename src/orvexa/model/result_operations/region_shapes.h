#pragma once

#include <opencv2/core.hpp>

#include <functional>
#include <vector>

#include "orvexa/common/parallel.h"
#include "orvexa/model/measures/region_set.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// `measure(picture)` for the whole mask (first element) and each region, where the picture is that of its box; the
/// default value where there is no pixel. Regions are measured side by side.
template <typename Measure>
[[nodiscard]] auto measure_pictures(const RegionSet& regions, const RunContext& context, const Measure& measure) {
  using Result = decltype(measure(cv::Mat()));
  const std::vector<Region>& all = regions.regions();
  std::vector<Result> results(all.size() + 1);
  common::parallel_for(regions.is_single() ? 1 : results.size(), [&](std::size_t k) {
    context.check();
    const Region& region = k == 0 ? regions.whole() : all[k - 1];
    if (region.area > 0) results[k] = measure(regions.crop(region, context));
  });
  if (regions.is_single()) results[1] = results[0];
  return results;
}

}  // namespace orvexa::model
