#include "orvexa/model/measures/components.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/region_shapes.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

struct Topology {
  std::int64_t parts = 0;
  std::int64_t holes = 0;
  std::int64_t hole_area = 0;
};

/// @param picture  of the tight box: what touches its border is connected with the outside.
Topology topology_of(const cv::Mat& picture, const RunContext& context) {
  Topology found;
  found.parts = static_cast<std::int64_t>(label_components(picture, 8, context).components.size());
  const Components background = label_background(picture, 4, context);
  for (const Components::Component& component : background.components) {
    if (background.touches_border(component)) continue;
    ++found.holes;
    found.hole_area += component.area;
  }
  return found;
}

class Holes final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult Holes::compute(const CaptureSet& capture, const RegionSet& regions, const Value&) {
  const std::vector<Topology> topologies = measure_regions(regions, context(), [&](const Region& region) {
    if (is_one_run_a_row(regions.runs(region))) return Topology{.parts = 1, .holes = 0, .hole_area = 0};
    return topology_of(regions.crop(region, context()), context());
  });
  const std::optional<double> scale = capture.millimetres_per_pixel();

  OperationResult result;
  result.units["euler_number"] = "";
  result.units["hole_count"] = "";
  add_area_units(result, "hole_area", scale);
  write_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
    const int part = index + 1;  // the whole mask is the first
    const Topology& own = topologies[static_cast<std::size_t>(part)];
    if (row.is_empty()) {
      for (const char* name : {"euler_number", "hole_count"}) row.leave_out(name, row.empty_reason());
    } else {
      row.set("euler_number", Value(own.parts - own.holes));
      row.set("hole_count", Value(own.holes));
    }
    set_area(row, "hole_area", Value(own.hole_area), scale);
  });
  return result;
}

}  // namespace

const ResultOperationInfo& holes_info() {
  static const ResultOperationInfo info{
      .key = "holes",
      .display_name = "Holes",
      .category = "Shape",
      .summary = "Counts the holes of the mask and of each region and measures their area.",
      .description =
          "A hole is a 4-connected part of the background that does not reach the border of the image. hole_count = "
          "number of holes, hole_area = their pixels, euler_number = number of 8-connected parts of the mask - "
          "hole_count. hole_area_mm2 appears where the capture declares its scale. For a region only its own pixels "
          "are looked at: what another region fills is a hole of the one around it. A mask or region without pixels "
          "has none of them.",
      .source =
          "A. Rosenfeld, J. L. Pfaltz, Sequential operations in digital picture processing, J. ACM 13(4), 1966, "
          "471-494, doi:10.1145/321356.321357",
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<Holes>(); }}};
  return info;
}

}  // namespace orvexa::model
