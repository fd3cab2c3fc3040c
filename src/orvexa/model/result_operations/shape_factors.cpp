#include <numbers>

#include "orvexa/model/measures/shape_measures.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/region_shapes.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

/// Below this a shape has too few pixels for its factors to mean much.
constexpr std::int64_t small_area = 30;

class ShapeFactors final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult ShapeFactors::compute(const CaptureSet&, const RegionSet& regions, const Value&) {
  struct Lengths {
    double perimeter = 0;
    double hull_perimeter = 0;
    double max_feret = 0;
    double min_feret = 0;
  };
  const std::vector<Lengths> lengths = measure_regions(regions, context(), [&](const Region& region) {
    const CornerHull hull = corner_hull(regions.rows(region), context());
    return Lengths{crofton_perimeter(regions.crop(region, context()), context()), hull.perimeter(), hull.max_feret(),
                   hull.min_feret()};
  });

  OperationResult result;
  for (const char* name : {"circularity", "compactness", "roundness", "aspect", "convexity", "small"}) {
    result.units[name] = "";
  }
  write_filled_rows(result, regions, [&](const Region& region, int index, ResultRow& row) {
    const Lengths& own = measured_of(lengths, index);
    const double four_pi_area = 4 * std::numbers::pi * static_cast<double>(region.area);
    const double squared_perimeter = own.perimeter * own.perimeter;
    row.set("circularity", four_pi_area / squared_perimeter);
    row.set("compactness", squared_perimeter / four_pi_area);
    row.set("roundness", 4 * static_cast<double>(region.area) / (std::numbers::pi * own.max_feret * own.max_feret));
    row.set("aspect", own.min_feret / own.max_feret);
    row.set("convexity", own.hull_perimeter / own.perimeter);
    row.set("small", Value(region.area < small_area));
  });
  return result;
}

}  // namespace

const ResultOperationInfo& shape_factors_info() {
  static const ResultOperationInfo info{
      .key = "shape_factors",
      .display_name = "Shape factors",
      .category = "Shape",
      .summary = "Compares the shape of the mask and of each region with a disc and with its convex hull.",
      .description =
          "With area A, Crofton perimeter P and the convex hull of the corners of the pixels: circularity = 4 pi A / "
          "P^2 (1 for a disc), compactness = P^2 / (4 pi A), roundness = 4 A / (pi Fmax^2), aspect = Fmin / Fmax "
          "(least and greatest Feret diameter, at most 1), convexity = perimeter of the hull / P. Numbers without "
          "unit, not clamped: the perimeter is an estimate, so that a compact shape may come out slightly above 1. "
          "small = the shape has fewer than 30 pixels, so that its factors mean little. A mask or region without "
          "pixels has none of them.",
      .source =
          "ISO 9276-6, Representation of results of particle size analysis - Part 6: Descriptive and quantitative "
          "representation of particle shape and morphology",
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<ShapeFactors>(); }}};
  return info;
}

}  // namespace orvexa::model
