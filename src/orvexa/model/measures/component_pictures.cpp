#include "orvexa/model/measures/component_pictures.h"

namespace orvexa::model {

RunsByComponent::RunsByComponent(const Components& components) : _begin(components.components.size() + 1, 0) {
  for (const Components::Run& run : components.runs) ++_begin[static_cast<std::size_t>(run.label)];
  std::inclusive_scan(_begin.begin(), _begin.end(), _begin.begin());
  std::vector<std::size_t> next = _begin;
  _runs.resize(components.runs.size());
  for (const Components::Run& run : components.runs) _runs[next[static_cast<std::size_t>(run.label - 1)]++] = run;
}

cv::Mat picture_of(const PixelRect& box, std::span<const Components::Run> runs) {
  cv::Mat picture = cv::Mat::zeros(box.y1 - box.y0, box.x1 - box.x0, CV_8UC1);
  for (const Components::Run& run : runs) {
    std::uint8_t* row = picture.ptr<std::uint8_t>(run.y - box.y0);
    std::fill(row + (run.x0 - box.x0), row + (run.x1 - box.x0), std::uint8_t{255});
  }
  return picture;
}

}  // namespace orvexa::model
