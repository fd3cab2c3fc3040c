#include "orvexa/model/mask_operations/component_filter.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <stdexcept>
#include <string>

#include "orvexa/model/measures/region_set.h"

namespace orvexa::model {

namespace {

void append_runs(const std::uint8_t* set, const std::int32_t* label, int y, int width,
                 std::vector<Components::Run>& runs) {
  for (int x = 0; x < width; ++x) {
    if (set[x] == 0 || label[x] == 0) continue;
    const bool goes_on = x > 0 && set[x - 1] != 0 && label[x - 1] == label[x];
    if (!goes_on) runs.push_back({y, x, x, label[x]});
    runs.back().x1 = x + 1;
  }
}

}  // namespace

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

cv::Mat only_kept(const Components& components, const std::vector<char>& is_kept, const RunContext& context) {
  cv::Mat pixels(components.shape.height, components.shape.width, CV_8UC1);
  for_each_stripe(pixels.rows, pixels.cols, context, [&](int y0, int y1) { pixels.rowRange(y0, y1).setTo(0); });
  paint_components(components, is_kept, 255, context, pixels);
  return pixels;
}

Components components_of_regions(const Mask& mask, const RunContext& context) {
  const RegionSet regions(mask, context);
  Components found;
  found.shape = mask.shape();
  for (const Region& region : regions.regions()) found.components.push_back({.area = region.area, .box = region.box});
  const int step = stripe_height(found.shape.width);
  std::vector<std::vector<Components::Run>> stripes(
      static_cast<std::size_t>(stripe_count(found.shape.height, found.shape.width)));
  for_each_stripe(found.shape.height, found.shape.width, context, [&](int y0, int y1) {
    std::vector<Components::Run>& runs = stripes[static_cast<std::size_t>(y0 / step)];
    for (int y = y0; y < y1; ++y) {
      append_runs(mask.row(y).data(), regions.label_row(y).data(), y, found.shape.width, runs);
    }
  });
  found.row_begin.assign(static_cast<std::size_t>(found.shape.height) + 1, 0);
  for (const std::vector<Components::Run>& stripe : stripes) {
    for (const Components::Run& run : stripe) ++found.row_begin[static_cast<std::size_t>(run.y) + 1];
    found.runs.insert(found.runs.end(), stripe.begin(), stripe.end());
  }
  std::inclusive_scan(found.row_begin.begin(), found.row_begin.end(), found.row_begin.begin());
  return found;
}

ParameterInfo parts_parameter() {
  return {.name = "of",
          .type = ParameterType::choice,
          .default_value = "components",
          .help = "Whether the connected parts of the mask are looked at, or the regions that an earlier step made.",
          .choices = {"components", "regions"}};
}

Components find_parts(std::string_view operation, const Mask& mask, const Value& params, const RunContext& context) {
  if (params.at("of") == "components") return label_components(mask, 8, context);
  if (!mask.labels()) {
    throw std::runtime_error(std::string(operation) +
                             ": there are no regions yet: put a step that makes some before it, or choose components.");
  }
  return components_of_regions(mask, context);
}

}  // namespace orvexa::model
