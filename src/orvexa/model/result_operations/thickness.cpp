#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "orvexa/model/measures/distance_map.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/region_shapes.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

/// Distances to the background over the pixels of a shape; absent where there is no background.
struct Inscribed {
  double max = 0;
  double mean = 0;
  double median = 0;
};

/// The value of a rank (counted from 0) among values that are counted.
double value_of_rank(const std::vector<std::int64_t>& counts, std::int64_t rank) {
  std::size_t value = 0;
  for (std::int64_t before = counts[0]; before <= rank; before += counts[value]) ++value;
  return std::sqrt(static_cast<double>(value));
}

double half_sum(double a, double b) {
  return (a + b) / 2;
}

/// From how many pixels have each squared distance.
Inscribed measured(const std::vector<std::int64_t>& counts) {
  Inscribed found;
  std::int64_t n = 0;
  double sum = 0;
  for (std::size_t squared = 0; squared < counts.size(); ++squared) {
    n += counts[squared];
    sum += static_cast<double>(counts[squared]) * std::sqrt(static_cast<double>(squared));
  }
  found.max = std::sqrt(static_cast<double>(counts.size() - 1));
  found.mean = sum / static_cast<double>(n);
  found.median = half_sum(value_of_rank(counts, (n - 1) / 2), value_of_rank(counts, n / 2));
  return found;
}

/// For pictures with a few pixels that are far from the background: a table by distance would be larger than they are.
Inscribed measured(std::vector<std::int32_t> squared) {
  std::sort(squared.begin(), squared.end());
  const auto root = [&](std::size_t k) { return std::sqrt(static_cast<double>(squared[k])); };
  Inscribed found{.max = root(squared.size() - 1), .mean = 0, .median = 0};
  for (std::size_t k = 0; k < squared.size(); ++k) found.mean += root(k) / static_cast<double>(squared.size());
  found.median = half_sum(root((squared.size() - 1) / 2), root(squared.size() / 2));
  return found;
}

/// Calls `act(squared distance)` for each pixel that is set.
template <typename Act>
void for_each_distance(const cv::Mat& map, const RunContext& context, const Act& act) {
  for (int y = 0; y < map.rows; ++y) {
    context.check();
    const std::int32_t* row = map.ptr<std::int32_t>(y);
    for (int x = 0; x < map.cols; ++x) {
      if (row[x] > 0) act(row[x]);
    }
  }
}

std::optional<Inscribed> inscribed(const cv::Mat& picture, const BackgroundSides& beyond, const RunContext& context) {
  const std::optional<cv::Mat> map = squared_distance_map(picture, context, beyond);
  if (!map) return {};
  std::int32_t highest = 0;
  for_each_distance(*map, context, [&](std::int32_t squared) { highest = std::max(highest, squared); });
  if (static_cast<std::size_t>(highest) > 4 * map->total() + 1000) {
    std::vector<std::int32_t> all;
    for_each_distance(*map, context, [&](std::int32_t squared) { all.push_back(squared); });
    return measured(std::move(all));
  }
  std::vector<std::int64_t> counts(static_cast<std::size_t>(highest) + 1, 0);
  for_each_distance(*map, context, [&](std::int32_t squared) { ++counts[static_cast<std::size_t>(squared)]; });
  return measured(counts);
}

class Thickness final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult Thickness::compute(const CaptureSet& capture, const RegionSet& regions, const Value&) {
  const auto radii = measure_regions(regions, context(), [&](const Region& region) {
    return inscribed(regions.crop(region, context()), background_sides(region.box, regions.shape()), context());
  });
  const std::optional<double> scale = capture.millimetres_per_pixel();

  static const std::string max_name = "inscribed_radius_max";
  static const std::string mean_name = "inscribed_radius_mean";
  static const std::string median_name = "inscribed_radius_median";
  OperationResult result;
  for (const std::string& name : {max_name, mean_name, median_name}) add_length_units(result, name, scale);
  write_filled_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
    const std::optional<Inscribed>& own = measured_of(radii, index);
    if (!own) {
      for (const std::string& name : {max_name, mean_name, median_name}) {
        leave_out_length(row, name, "The whole image is set: there is no background to measure to.", scale);
      }
      return;
    }
    set_length(row, max_name, own->max, scale);
    set_length(row, mean_name, own->mean, scale);
    set_length(row, median_name, own->median, scale);
  });
  return result;
}

}  // namespace

const ResultOperationInfo& thickness_info() {
  static const ResultOperationInfo info{
      .key = "thickness",
      .display_name = "Thickness",
      .category = "Shape",
      .summary = "Measures how far the pixels of the mask and of each region are from the background.",
      .description =
          "The radius at a pixel is the Euclidean distance from its centre to the centre of the nearest "
          "pixel that is not in the shape, exact; it is 1 for a line of one pixel. inscribed_radius_max = "
          "the greatest of them, the radius of the largest disc that fits in; inscribed_radius_mean and "
          "inscribed_radius_median = their mean and median over all pixels of the shape. What lies outside "
          "the image counts as foreground: a shape that the image cuts is measured to its visible rim only."
          " For a region every pixel outside it is background, also one of another region. Lengths in mm "
          "appear as <name>_mm where the capture declares its scale. A mask that fills the image has no "
          "background and no radius. A mask or region without pixels has none of them.",
      .source =
          "P. F. Felzenszwalb, D. P. Huttenlocher, Distance transforms of sampled functions, Theory of Computing "
          "8(19), 2012, 415-428, doi:10.4086/toc.2012.v008a019; A. Meijster, J. B. T. M. Roerdink, W. H. Hesselink, A "
          "general algorithm for computing distance transforms in linear time, 2000",
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<Thickness>(); }}};
  return info;
}

}  // namespace orvexa::model
