#pragma once

#include <opencv2/core.hpp>

#include <algorithm>
#include <numeric>
#include <span>
#include <vector>

#include "orvexa/common/parallel.h"
#include "orvexa/model/measures/components.h"

namespace orvexa::model {

/// The runs of all components, those of one component together and in raster order.
class RunsByComponent {
 public:
  explicit RunsByComponent(const Components& components);
  /// @param component  its place among the components, from 0.
  [[nodiscard]] std::span<const Components::Run> of(std::size_t component) const {
    return std::span(_runs).subspan(_begin[component], _begin[component + 1] - _begin[component]);
  }

 private:
  std::vector<std::size_t> _begin;
  std::vector<Components::Run> _runs;
};

/// A component alone, CV_8UC1 of 0 and 255, as a picture of its box.
[[nodiscard]] cv::Mat picture_of(const PixelRect& box, std::span<const Components::Run> runs);

/// `measure(picture, component)` for each component, where the picture is that of its box; `undefined` for one without
/// pixels. Components are measured side by side.
template <typename Result, typename Measure>
[[nodiscard]] std::vector<Result> measure_components(const Components& components, const RunContext& context,
                                                     const Result& undefined, const Measure& measure) {
  constexpr std::size_t block = 64;
  const std::size_t count = components.components.size();
  const RunsByComponent runs(components);
  std::vector<Result> results(count, undefined);
  common::parallel_for((count + block - 1) / block, [&](std::size_t i) {
    for (std::size_t k = i * block; k < std::min(count, (i + 1) * block); ++k) {
      context.check();
      const Components::Component& component = components.components[k];
      if (component.area > 0) results[k] = measure(picture_of(component.box, runs.of(k)), component);
    }
  });
  return results;
}

}  // namespace orvexa::model
