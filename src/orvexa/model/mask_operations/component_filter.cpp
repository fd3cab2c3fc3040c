#include "orvexa/model/mask_operations/component_filter.h"

#include <cstdint>

namespace orvexa::model {

cv::Mat pixels_of_components(const Components& components, const std::vector<char>& is_chosen,
                             const RunContext& context) {
  std::vector<std::uint8_t> value_of_label{0};
  value_of_label.reserve(is_chosen.size() + 1);
  for (const char chosen : is_chosen) value_of_label.push_back(chosen != 0 ? 255 : 0);
  const cv::Mat& labels = components.labels;
  cv::Mat pixels(labels.rows, labels.cols, CV_8UC1);
  for_each_stripe(labels.rows, labels.cols, context, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      const std::int32_t* label = labels.ptr<std::int32_t>(y);
      std::uint8_t* out = pixels.ptr<std::uint8_t>(y);
      for (int x = 0; x < labels.cols; ++x) out[x] = value_of_label[static_cast<std::size_t>(label[x])];
    }
  });
  return pixels;
}

}  // namespace orvexa::model
