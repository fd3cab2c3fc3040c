#include "orvexa/model/mask_operations/component_filter.h"

#include <algorithm>
#include <cstring>

namespace orvexa::model {

void paint_components(const Components& components, const std::vector<char>& is_chosen, std::uint8_t value,
                      const RunContext& context, cv::Mat& pixels) {
  for_each_stripe(components.shape.height, components.shape.width, context, [&](int y0, int y1) {
    for (const Components::Run& run : components.runs_of_rows(y0, y1)) {
      if (is_chosen[static_cast<std::size_t>(run.label - 1)] == 0) continue;
      std::memset(pixels.ptr<std::uint8_t>(run.y) + run.x0, value, static_cast<std::size_t>(run.x1 - run.x0));
    }
  });
}

cv::Mat only_kept(const Mask& mask, const Components& components, const std::vector<char>& is_kept,
                  const RunContext& context) {
  std::vector<char> is_removed(is_kept.size());
  std::transform(is_kept.begin(), is_kept.end(), is_removed.begin(),
                 [](char kept) { return static_cast<char>(kept == 0 ? 1 : 0); });
  cv::Mat pixels = mask.read_only().clone();
  paint_components(components, is_removed, 0, context, pixels);
  return pixels;
}

}  // namespace orvexa::model
