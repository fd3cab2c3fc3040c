#include <algorithm>

#include "orvexa/model/measures/components.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/region_shapes.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

class RegionCount final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult RegionCount::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const auto min_area = params.at("min_area").get<std::int64_t>();
  const std::optional<double> scale = capture.millimetres_per_pixel();
  using Found = std::vector<Components::Component>;
  const std::vector<Found> components = measure_pictures(regions, context(), [&](const cv::Mat& picture) {
    Found found = label_components(picture, 8, context()).components;
    std::erase_if(found, [&](const Components::Component& component) { return component.area < min_area; });
    return found;
  });

  OperationResult result;
  result.units["region_count"] = "";
  write_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
    if (row.is_empty()) {
      row.leave_out("region_count", row.empty_reason());
    } else {
      const int part = index + 1;  // the whole mask is the first
      row.set("region_count", Value(components[static_cast<std::size_t>(part)].size()));
    }
  });

  ResultTable& areas = result.tables["areas"];
  areas.columns = {"number", "area", "x", "y", "width", "height"};
  if (scale) areas.columns.emplace_back("area_mm2");
  const PixelRect& frame = regions.whole().box;
  for (const Components::Component& component : components.front()) {
    const PixelRect& box = component.box;
    std::vector<Value> row{areas.rows.size() + 1, component.area,  box.x0 + frame.x0,
                           box.y0 + frame.y0,     box.x1 - box.x0, box.y1 - box.y0};
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
      .summary = "Counts the connected parts of the mask and lists their areas.",
      .description =
          "region_count = number of 8-connected components with at least min_area pixels. The table `areas` lists "
          "those of "
          "the whole mask from top to bottom and left to right of their first pixel: number, area in pixels, box (x, "
          "y, "
          "width, height in pixels of the full frame) and area_mm2 where the capture declares its scale. For a region "
          "only "
          "its own pixels are looked at. A mask or region without pixels has no count.",
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
