#include <cmath>
#include <cstdint>
#include <utility>

#include "orvexa/common/parallel.h"
#include "orvexa/model/measures/nearest_points.h"
#include "orvexa/model/measures/shape_measures.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/region_shapes.h"
#include "orvexa/model/result_operations/result_rows.h"
#include "orvexa/model/scale_units.h"

namespace orvexa::model {

namespace {

constexpr std::string_view no_other = "There is no other region.";

/// What a region's neighbours are.
struct Neighbours {
  std::optional<NearestPoints::Found> by_centroid;
  std::optional<NearestPoints::Found> by_edge;
  std::int64_t within_radius = 0;
};

/// What is known of all regions together; only those that have pixels count.
struct Together {
  std::size_t n = 0;
  double mean_centroid_distance = 0;
  double mean_edge_distance = 0;
  double mean_within_radius = 0;
  double clark_evans = 0;
};

/// The pixels of a region with a neighbour above, below, left or right that is not in it: the nearest pixel of another
/// region is always nearest to one of them.
std::vector<GroupedPoint> border_of(const RegionSet& regions, std::size_t k, const RunContext& context) {
  const Region& region = regions.regions()[k];
  const cv::Mat picture = regions.crop(region, context);
  std::vector<GroupedPoint> border;
  for (int y = 0; y < picture.rows; ++y) {
    context.check();
    const std::uint8_t* row = picture.ptr<std::uint8_t>(y);
    const std::uint8_t* above = y > 0 ? picture.ptr<std::uint8_t>(y - 1) : nullptr;
    const std::uint8_t* below = y + 1 < picture.rows ? picture.ptr<std::uint8_t>(y + 1) : nullptr;
    for (int x = 0; x < picture.cols; ++x) {
      if (row[x] == 0) continue;
      const bool is_inside = above != nullptr && below != nullptr && x > 0 && x + 1 < picture.cols &&
                             (above[x] & below[x] & row[x - 1] & row[x + 1]) != 0;
      if (is_inside) continue;
      border.push_back({double(region.box.x0) + x, double(region.box.y0) + y, static_cast<std::uint32_t>(k)});
    }
  }
  return border;
}

std::vector<Neighbours> find_neighbours(const RegionSet& regions, double radius, const RunContext& context) {
  const std::vector<Region>& all = regions.regions();
  std::vector<std::vector<GroupedPoint>> borders(all.size());
  std::vector<GroupedPoint> centroids(all.size());
  common::parallel_for(all.size(), [&](std::size_t k) {
    context.check();
    if (all[k].area == 0) return;
    const EllipseFit fit = fit_ellipse(regions.rows(all[k]), context);
    centroids[k] = {all[k].box.x0 + fit.centroid_x, all[k].box.y0 + fit.centroid_y, static_cast<std::uint32_t>(k)};
    borders[k] = border_of(regions, k, context);
  });
  std::vector<GroupedPoint> those_with_pixels;
  std::vector<GroupedPoint> border_pixels;
  for (std::size_t k = 0; k < all.size(); ++k) {
    if (all[k].area > 0) those_with_pixels.push_back(centroids[k]);
    border_pixels.insert(border_pixels.end(), borders[k].begin(), borders[k].end());
  }
  const NearestPoints centroid_tree(std::move(those_with_pixels), context);
  const NearestPoints border_tree(std::move(border_pixels), context);
  std::vector<Neighbours> found(all.size());
  common::parallel_for(all.size(), [&](std::size_t k) {
    context.check();
    if (all[k].area == 0) return;
    centroid_tree.improve(centroids[k], found[k].by_centroid);
    found[k].within_radius = centroid_tree.count_within(centroids[k], radius);
    for_each_piece(borders[k].size(), context, [&](std::size_t begin, std::size_t end) {
      for (std::size_t i = begin; i < end; ++i) border_tree.improve(borders[k][i], found[k].by_edge);
    });
  });
  return found;
}

/// @param ground  pixels of the region of interest, where a region could lie.
Together summary(const RegionSet& regions, const std::vector<Neighbours>& neighbours, double ground) {
  Together all;
  for (std::size_t k = 0; k < neighbours.size(); ++k) {
    if (regions.regions()[k].area == 0) continue;
    const Neighbours& own = neighbours[k];
    ++all.n;
    all.mean_within_radius += static_cast<double>(own.within_radius);
    if (own.by_centroid) all.mean_centroid_distance += std::sqrt(own.by_centroid->squared_distance);
    if (own.by_edge) all.mean_edge_distance += std::sqrt(own.by_edge->squared_distance);
  }
  const auto n = static_cast<double>(all.n);
  if (all.n == 0) return all;
  all.mean_within_radius /= n;
  all.mean_centroid_distance /= n;
  all.mean_edge_distance /= n;
  all.clark_evans = all.mean_centroid_distance * 2 * std::sqrt(n / ground);
  return all;
}

ResultTable table_of(const RegionSet& regions, const std::vector<Neighbours>& neighbours) {
  ResultTable table;
  table.columns = {"region", "nearest_by_centroid", "nearest_by_edge"};
  for (std::size_t k = 0; k < neighbours.size(); ++k) {
    const auto& [by_centroid, by_edge, within_radius] = neighbours[k];
    if (!by_centroid || !by_edge) continue;
    const std::vector<Region>& all = regions.regions();
    table.rows.push_back({all[k].name, all.at(by_centroid->group).name, all.at(by_edge->group).name});
  }
  return table;
}

class NeighboursOperation final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult NeighboursOperation::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const std::optional<double> scale = capture.millimetres_per_pixel();
  const double radius =
      longest_in_pixels("Neighbours", params.at("radius").get<double>(), params.at("unit").get<std::string>(), capture);
  const std::vector<Neighbours> neighbours = find_neighbours(regions, radius, context());
  const std::optional<Mask> bounds = regions.mask().bounds();
  const auto ground = static_cast<double>(bounds ? bounds->count() : regions.shape().pixels());
  const Together together = summary(regions, neighbours, ground);

  static const std::string centroid_name = "nearest_centroid_distance";
  static const std::string edge_name = "nearest_edge_distance";
  OperationResult result;
  for (const std::string& name : {centroid_name, edge_name}) add_length_units(result, name, scale);
  result.units["neighbours_within_radius"] = "";
  result.units["clark_evans_index"] = "";
  write_filled_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
    if (together.n < 2) {
      for (const std::string& name : {centroid_name, edge_name}) leave_out_length(row, name, no_other, scale);
      row.set("neighbours_within_radius", 0.0);
      row.leave_out("clark_evans_index", no_other);
    } else if (index < 0) {
      set_length(row, centroid_name, together.mean_centroid_distance, scale);
      set_length(row, edge_name, together.mean_edge_distance, scale);
      row.set("neighbours_within_radius", together.mean_within_radius);
      row.set("clark_evans_index", together.clark_evans);
    } else {
      const Neighbours& own = neighbours[static_cast<std::size_t>(index)];
      set_length(row, centroid_name, std::sqrt(own.by_centroid.value().squared_distance), scale);
      set_length(row, edge_name, std::sqrt(own.by_edge.value().squared_distance), scale);
      row.set("neighbours_within_radius", static_cast<double>(own.within_radius));
      row.leave_out("clark_evans_index", "It is a number of all regions together.");
    }
  });
  result.tables.insert_or_assign("nearest", table_of(regions, neighbours));
  return result;
}

}  // namespace

const ResultOperationInfo& neighbours_info() {
  static const ResultOperationInfo info{
      .key = "neighbours",
      .display_name = "Neighbours",
      .category = "Shape",
      .summary = "Measures how far each region is from the nearest other one and how evenly the regions are spread.",
      .description =
          "For each region: nearest_centroid_distance = distance of its centroid to the nearest centroid of"
          " another region; nearest_edge_distance = distance between the centres of the two nearest pixels "
          "of it and of another region, 1 where they touch side by side; neighbours_within_radius = number "
          "of other regions whose centroid is at most radius away. For the whole mask: the means of these "
          "over the regions, and clark_evans_index = mean nearest_centroid_distance * 2 sqrt(n / ground) "
          "with n regions on the pixels of the region of interest (of the image where there is none), which"
          " is the mean distance divided by the one expected of points at random: 1 = at random, 0 = all in"
          " one place, 2.149 = as far apart as can be (a triangular grid); without correction for the "
          "border of the ground. The table `nearest` says which region each one's nearest is, by centroid "
          "and by edge; of several at the same distance the first. Regions without pixels do not count. "
          "With a single region there is nothing to compare. Lengths in mm appear as <name>_mm where the "
          "capture declares its scale. A mask or region without pixels has none of them.",
      .source =
          "P. J. Clark, F. C. Evans, Distance to nearest neighbor as a measure of spatial relationships in "
          "populations, Ecology 35(4), 1954, 445-453, doi:10.2307/1931034",
      .parameters = {{.name = "radius",
                      .type = ParameterType::real,
                      .default_value = 100.0,
                      .min = 0,
                      .max = 1000000,
                      .unit = "px or mm",
                      .help = "Other regions whose centroid is at most this far away are counted."},
                     length_unit_parameter()},
      .needs_labels = true,
      .check_capture = check_scale_for("Neighbours"),
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<NeighboursOperation>(); }}};
  return info;
}

}  // namespace orvexa::model
