#include <algorithm>
#include <span>
#include <utility>

#include "orvexa/common/parallel.h"
#include "orvexa/model/measures/components.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

using Found = std::vector<Components::Component>;

/// Those that are large enough.
Found parts_of(Components components, std::int64_t min_area) {
  std::erase_if(components.components,
                [&](const Components::Component& component) { return component.area < min_area; });
  return std::move(components.components);
}

/// How many parts of a region alone are large enough, from its runs.
std::size_t count_parts(const RegionSet& regions, const Region& region, std::int64_t min_area,
                        const RunContext& context) {
  const std::span<const PixelRun> own = regions.runs(region);
  if (is_one_run_a_row(own)) return region.area >= min_area ? 1 : 0;
  std::vector<Components::Run> runs;
  runs.reserve(own.size());
  for (const PixelRun& run : own) runs.push_back({run.y - region.box.y0, run.x0, run.x1, 0});
  const Shape shape{region.box.y1 - region.box.y0, regions.shape().width};
  return parts_of(label_runs(shape, std::move(runs), 8, context), min_area).size();
}

class RegionCount final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult RegionCount::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const auto min_area = params.at("min_area").get<std::int64_t>();
  const std::optional<double> scale = capture.millimetres_per_pixel();
  Found parts = parts_of(label_components(regions.mask(), 8, context()), min_area);
  const std::vector<Region>& all = regions.regions();
  std::vector<std::size_t> counts(all.size(), parts.size());  // where nobody made regions the one region is the whole
  if (!regions.is_single()) {
    common::parallel_for(all.size(), [&](std::size_t k) {
      context().check();
      counts[k] = count_parts(regions, all[k], min_area, context());
    });
  }

  const auto labelled =
      std::ranges::count_if(all, [&](const Region& region) { return region.area > 0 && region.area >= min_area; });

  OperationResult result;
  result.units["region_count"] = "";
  if (!regions.is_single()) result.units["labelled_count"] = "";
  write_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
    if (row.is_empty()) {
      row.leave_out("region_count", row.empty_reason());
    } else {
      row.set("region_count", Value(index < 0 ? parts.size() : counts[static_cast<std::size_t>(index)]));
    }
    if (regions.is_single()) return;
    if (row.is_empty()) {
      row.leave_out("labelled_count", row.empty_reason());
    } else if (index >= 0) {
      row.leave_out("labelled_count", "It is a number of all regions together.");
    } else {
      row.set("labelled_count", Value(labelled));
    }
  });

  ResultTable& areas = result.tables["areas"];
  areas.columns = {"number", "area", "x", "y", "width", "height"};
  if (scale) areas.columns.emplace_back("area_mm2");
  areas.rows.reserve(parts.size());
  for (const Components::Component& component : parts) {
    const PixelRect& box = component.box;
    std::vector<Value> row{areas.rows.size() + 1, component.area, box.x0, box.y0, box.x1 - box.x0, box.y1 - box.y0};
    if (scale) row.emplace_back(static_cast<double>(component.area) * *scale * *scale);
    areas.rows.push_back(std::move(row));
  }
  return result;
}

}  // namespace

const ResultOperationInfo& region_count_info() {
  // A mask that was only drawn has nothing to count in it: a step that tells objects from background is needed. The
  // steps that work on such a mask (morphology, filters of regions) cannot come without one of these.
  static const std::vector<std::string> separating{
      "threshold_*", "background_difference", "texture_threshold", "cluster_*", "region_grow", "grabcut", "mask_*"};
  static const ResultOperationInfo info{
      .key = "region_count",
      .display_name = "Count of objects",
      .category = "Shape",
      .summary = "Counts the connected parts of the mask and the regions that were made, and lists the parts' areas.",
      .description =
          "region_count = number of 8-connected components with at least min_area pixels, whatever regions there are: "
          "objects that touch count as one. labelled_count = number of regions with at least min_area pixels that a "
          "step made, such as split_touching: objects that touch and were split count as several. It is a number of "
          "the whole mask, there only where a step made regions. The table `areas` lists the components of the "
          "whole mask from top to bottom and left to right of their first pixel: number, area in pixels, box (x, y, "
          "width, height in pixels of the full frame) and area_mm2 where the capture declares its scale. For a region "
          "only its own pixels are looked at. A mask or region without pixels has no count.",
      .source =
          "A. Rosenfeld, J. L. Pfaltz, Sequential operations in digital picture processing, J. ACM 13(4), 1966, "
          "471-494, doi:10.1145/321356.321357",
      .parameters = {{.name = "min_area",
                      .type = ParameterType::integer,
                      .default_value = 1,
                      .min = 1,
                      .max = 1'000'000'000,
                      .unit = "px",
                      .help = "Parts of the mask with fewer pixels are not counted."}},
      .operation_class = {._requires_mask_operation = separating,
                          .make = [] { return std::make_unique<RegionCount>(); }}};
  return info;
}

}  // namespace orvexa::model
