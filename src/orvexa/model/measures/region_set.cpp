#include "orvexa/model/measures/region_set.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <utility>

namespace orvexa::model {

namespace {

struct Extent {
  std::int64_t area = 0;
  PixelRect box;

  void add_run(int y, int x0, int x1) {
    if (area == 0) {
      box = {x0, y, x1, y + 1};
    } else {
      box = {std::min(box.x0, x0), std::min(box.y0, y), std::max(box.x1, x1), std::max(box.y1, y + 1)};
    }
    area += x1 - x0;
  }

  void add(const Extent& other) {
    if (other.area == 0) return;
    const std::int64_t total = area + other.area;
    add_run(other.box.y0, other.box.x0, other.box.x1);
    add_run(other.box.y1 - 1, other.box.x0, other.box.x1);
    area = total;
  }
};

}  // namespace

RegionSet::RegionSet(Mask mask, const RunContext& context) : _mask(std::move(mask)), _labels(_mask.labels()) {
  const cv::Rect box = cv::boundingRect(_mask.read_only());
  _whole = {
      .name = {}, .label = 0, .area = _mask.count(), .box = {box.x, box.y, box.x + box.width, box.y + box.height}};
  if (!_labels) {
    make_single();
    return;
  }

  const std::size_t count = _labels->names.size();
  const int height = _mask.shape().height;
  const int width = _mask.shape().width;
  std::vector<std::vector<Extent>> partial(static_cast<std::size_t>(stripe_count(height, width)));
  const int rows_a_stripe = stripe_height(width);
  for_each_stripe(height, width, context, [&](int y0, int y1) {
    std::vector<Extent>& extents = partial[static_cast<std::size_t>(y0 / rows_a_stripe)];
    extents.resize(count);
    for (int y = y0; y < y1; ++y) {
      const std::uint8_t* set = _mask.read_only().ptr<std::uint8_t>(y);
      const std::int32_t* label = _labels->image.ptr<std::int32_t>(y);
      for (int x = 0; x < width;) {
        if (set[x] == 0 || label[x] == 0) {
          ++x;
          continue;
        }
        const int first = x;
        const std::int32_t here = label[x];
        while (x < width && set[x] != 0 && label[x] == here) ++x;
        const auto index = static_cast<std::size_t>(here) - 1;
        if (index >= count) throw std::logic_error("A region's label has no name.");
        extents[index].add_run(y, first, x);
      }
    }
  });
  for (std::size_t index = 0; index < count; ++index) {
    Extent extent;
    for (const std::vector<Extent>& stripe : partial) extent.add(stripe[index]);
    _regions.push_back(
        {.name = _labels->names[index], .label = static_cast<int>(index) + 1, .area = extent.area, .box = extent.box});
  }
}

void RegionSet::make_single() {
  _labels.reset();
  _regions = {_whole};
  _regions.front().name = "ROI_1";
  _regions.front().label = 1;
}

RegionSet RegionSet::joined() const {
  RegionSet one = *this;
  one.make_single();
  return one;
}

cv::Mat RegionSet::crop(const Region& region, const RunContext& context) const {
  if (region.area == 0) return {};
  const cv::Rect box(region.box.x0, region.box.y0, region.box.x1 - region.box.x0, region.box.y1 - region.box.y0);
  cv::Mat set = _mask.read_only()(box);
  if (region.label == 0 || !_labels) return set;
  cv::Mat alone(box.size(), CV_8UC1);
  for_each_stripe(box.height, box.width, context, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      const std::uint8_t* own = set.ptr<std::uint8_t>(y);
      const std::int32_t* label = _labels->image.ptr<std::int32_t>(box.y + y) + box.x;
      std::uint8_t* out = alone.ptr<std::uint8_t>(y);
      for (int x = 0; x < box.width; ++x) out[x] = label[x] == region.label ? own[x] : std::uint8_t{0};
    }
  });
  return alone;
}

}  // namespace orvexa::model
