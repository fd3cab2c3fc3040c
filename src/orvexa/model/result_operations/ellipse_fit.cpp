#include "orvexa/model/measures/shape_measures.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/region_shapes.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

class EllipseOperation final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult EllipseOperation::compute(const CaptureSet& capture, const RegionSet& regions, const Value&) {
  const std::vector<EllipseFit> fits =
      measure_rows(regions, context(), [&](const PixelRows& rows) { return fit_ellipse(rows, context()); });
  const std::optional<double> scale = capture.millimetres_per_pixel();

  OperationResult result;
  for (const char* name : {"major_axis", "minor_axis"}) add_length_units(result, name, scale);
  result.units["eccentricity"] = "";
  result.units["ellipse_angle"] = "degrees";
  write_filled_rows(result, regions, [&](const Region& region, int index, ResultRow& row) {
    const EllipseFit& fit = measured_of(fits, index);
    set_length(row, "major_axis", fit.major_axis, scale);
    set_length(row, "minor_axis", fit.minor_axis, scale);
    if (region.area == 1) {
      row.leave_out("eccentricity", "A single pixel has no axes.");
    } else {
      row.set("eccentricity", fit.eccentricity);
    }
    if (fit.has_direction) {
      row.set("ellipse_angle", fit.direction);
    } else {
      row.leave_out("ellipse_angle", "The axes are equal.");
    }
  });
  return result;
}

}  // namespace

const ResultOperationInfo& ellipse_fit_info() {
  static const ResultOperationInfo info{
      .key = "ellipse_fit",
      .display_name = "Ellipse",
      .category = "Shape",
      .summary = "Measures the ellipse with the same second moments as the mask and as each region.",
      .description =
          "With l1 >= l2 the eigenvalues of the covariance matrix of the positions of the pixels' centres: "
          "major_axis = 4 sqrt(l1) and minor_axis = 4 sqrt(l2), the full lengths of the axes; eccentricity "
          "= sqrt(1 - l2 / l1), 0 for a disc; ellipse_angle = direction of the major axis. Angles are in "
          "degrees from 0 to below 180, counter-clockwise from the x axis as the picture is looked at (0 = "
          "along a row, 90 = along a column). Axes that are equal have no angle, and a single pixel, whose "
          "axes are 0, has no eccentricity. major_axis_mm and minor_axis_mm appear where the capture "
          "declares its scale. A mask or region without pixels has none of them.",
      .source =
          "M.-K. Hu, Visual pattern recognition by moment invariants, IRE Trans. Information Theory 8(2), 1962, "
          "179-187, doi:10.1109/TIT.1962.1057692",
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<EllipseOperation>(); }}};
  return info;
}

}  // namespace orvexa::model
