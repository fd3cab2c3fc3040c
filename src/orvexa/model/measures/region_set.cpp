#include "orvexa/model/measures/region_set.h"

#include <algorithm>
#include <cstring>
#include <numeric>
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
};

struct LabelledRun {
  PixelRun run;
  std::int32_t label = 0;
};

void append_runs(const std::uint8_t* set, const std::int32_t* label, int y, int width, std::vector<LabelledRun>& runs) {
  for (int x = 0; x < width;) {
    if (set[x] == 0 || label[x] == 0) {
      ++x;
      continue;
    }
    const int first = x;
    const std::int32_t here = label[x];
    while (x < width && set[x] != 0 && label[x] == here) ++x;
    runs.push_back({{y, first, x}, here});
  }
}

}  // namespace

RegionSet::RegionSet(Mask mask, const RunContext& context) : _mask(std::move(mask)), _labels(_mask.labels()) {
  const cv::Rect box = cv::boundingRect(_mask.read_only());
  _whole = {
      .name = {}, .label = 0, .area = _mask.count(), .box = {box.x, box.y, box.x + box.width, box.y + box.height}};
  if (!_labels) {
    make_single();
    return;
  }

  const int height = _mask.shape().height;
  const int width = _mask.shape().width;
  std::vector<std::vector<LabelledRun>> stripes(static_cast<std::size_t>(stripe_count(height, width)));
  const int rows_a_stripe = stripe_height(width);
  for_each_stripe(height, width, context, [&](int y0, int y1) {
    std::vector<LabelledRun>& found = stripes[static_cast<std::size_t>(y0 / rows_a_stripe)];
    for (int y = y0; y < y1; ++y) {
      append_runs(_mask.read_only().ptr<std::uint8_t>(y), _labels->image.ptr<std::int32_t>(y), y, width, found);
    }
  });

  const std::size_t count = _labels->names.size();
  std::vector<Extent> extents(count);
  const auto grouped = std::make_shared<Runs>();
  grouped->begin.assign(count + 1, 0);
  for (const std::vector<LabelledRun>& stripe : stripes) {
    context.check();
    for (const auto& [run, label] : stripe) {
      const auto index = static_cast<std::size_t>(label) - 1;
      if (index >= count) throw std::logic_error("A region's label has no name.");
      extents[index].add_run(run.y, run.x0, run.x1);
      ++grouped->begin[index + 1];
    }
  }
  std::inclusive_scan(grouped->begin.begin(), grouped->begin.end(), grouped->begin.begin());
  grouped->runs.resize(grouped->begin.back());
  std::vector<std::size_t> next = grouped->begin;
  for (const std::vector<LabelledRun>& stripe : stripes) {
    context.check();
    for (const auto& [run, label] : stripe) grouped->runs[next[static_cast<std::size_t>(label) - 1]++] = run;
  }
  _runs = grouped;
  for (std::size_t index = 0; index < count; ++index) {
    const Extent& extent = extents[index];
    _regions.push_back(
        {.name = _labels->names[index], .label = static_cast<int>(index) + 1, .area = extent.area, .box = extent.box});
  }
}

void RegionSet::make_single() {
  _labels.reset();
  _runs.reset();
  _regions = {_whole};
  _regions.front().name = "ROI_1";
  _regions.front().label = 1;
}

RegionSet RegionSet::joined() const {
  RegionSet one = *this;
  one.make_single();
  return one;
}

std::span<const PixelRun> RegionSet::runs(const Region& region) const {
  if (!_runs || region.label == 0) return {};
  const auto index = static_cast<std::size_t>(region.label) - 1;
  const std::size_t begin = _runs->begin[index];
  return std::span(_runs->runs).subspan(begin, _runs->begin[index + 1] - begin);
}

PixelRows RegionSet::rows(const Region& region) const {
  if (region.label > 0 && _runs) return {runs(region), {region.box.x0, region.box.y0}};
  return region.area == 0 ? cv::Mat() : crop(region);
}

cv::Mat RegionSet::crop(const Region& region, const RunContext& context) const {
  if (region.area == 0) return {};
  const cv::Rect box(region.box.x0, region.box.y0, region.box.x1 - region.box.x0, region.box.y1 - region.box.y0);
  if (region.label == 0 || !_labels) return _mask.read_only()(box);
  cv::Mat alone(box.size(), CV_8UC1);
  const std::span<const PixelRun> own = runs(region);
  for_each_stripe(box.height, box.width, context, [&](int y0, int y1) {
    alone.rowRange(y0, y1).setTo(0);
    auto run =
        std::lower_bound(own.begin(), own.end(), box.y + y0, [](const PixelRun& one, int y) { return one.y < y; });
    for (; run != own.end() && run->y < box.y + y1; ++run) {
      std::memset(alone.ptr<std::uint8_t>(run->y - box.y) + (run->x0 - box.x), 255,
                  static_cast<std::size_t>(run->x1 - run->x0));
    }
  });
  return alone;
}

}  // namespace orvexa::model
