#include "orvexa/model/measures/shape_measures.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/region_shapes.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

class ConvexHull final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult ConvexHull::compute(const CaptureSet& capture, const RegionSet& regions, const Value&) {
  const std::vector<double> areas =
      measure_rows(regions, context(), [&](const PixelRows& rows) { return corner_hull(rows, context()).area(); });
  const std::optional<double> scale = capture.millimetres_per_pixel();

  OperationResult result;
  add_area_units(result, "hull_area", scale);
  result.units["solidity"] = "";
  write_rows(result, regions, [&](const Region& region, int index, ResultRow& row) {
    const int part = index + 1;  // the whole mask is the first
    const double hull_area = areas[static_cast<std::size_t>(part)];
    set_area(row, "hull_area", Value(hull_area), scale);
    if (row.is_empty()) {
      row.leave_out("solidity", row.empty_reason());
    } else {
      row.set("solidity", static_cast<double>(region.area) / hull_area);
    }
  });
  return result;
}

}  // namespace

const ResultOperationInfo& convex_hull_info() {
  static const ResultOperationInfo info{
      .key = "convex_hull",
      .display_name = "Convex hull",
      .category = "Shape",
      .summary = "Measures the convex hull of the mask and of each region and how much of it is filled.",
      .description =
          "hull_area = area of the convex hull of the corners of the pixels, where the pixel in column x covers x to x "
          "+ 1, so that a convex shape of pixels has exactly its own area. solidity = area / hull_area, at most 1. "
          "hull_area_mm2 appears where the capture declares its scale. The whole mask is measured as one set: its hull "
          "spans the gaps between its parts. A mask or region without pixels has none of them.",
      .source =
          "A. M. Andrew, Another efficient algorithm for convex hulls in two dimensions, Information Processing "
          "Letters 9(5), 1979, 216-219",
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<ConvexHull>(); }}};
  return info;
}

}  // namespace orvexa::model
