#include <array>

#include "orvexa/model/measures/shape_measures.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/region_shapes.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

class MomentsHu final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult MomentsHu::compute(const CaptureSet&, const RegionSet& regions, const Value&) {
  const std::vector<std::array<double, 7>> moments =
      measure_rows(regions, context(), [&](const PixelRows& rows) { return hu_moments(rows, context()); });

  static const std::array<std::string, 7> names{"hu_1", "hu_2", "hu_3", "hu_4", "hu_5", "hu_6", "hu_7"};
  OperationResult result;
  for (const std::string& name : names) result.units[name] = "";
  write_filled_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
    const std::array<double, 7>& own = measured_of(moments, index);
    for (std::size_t k = 0; k < names.size(); ++k) row.set(names.at(k), own.at(k));
  });
  return result;
}

}  // namespace

const ResultOperationInfo& moments_hu_info() {
  static const ResultOperationInfo info{
      .key = "moments_hu",
      .display_name = "Moment invariants",
      .category = "Shape",
      .summary = "Gives the seven moment invariants of Hu of the mask and of each region.",
      .description =
          "Every pixel counts as a mass of 1 at its centre. With the central moments mu_pq = sum of (x - "
          "mean x)^p (y - mean y)^q and n_pq = mu_pq / area^(1 + (p + q) / 2): hu_1 = n20 + n02; hu_2 = "
          "(n20 - n02)^2 + 4 n11^2; with a = n30 + n12, b = n21 + n03, c = n30 - 3 n12, d = 3 n21 - n03: "
          "hu_3 = c^2 + d^2; hu_4 = a^2 + b^2; hu_5 = c a (a^2 - 3 b^2) + d b (3 a^2 - b^2); hu_6 = (n20 - "
          "n02)(a^2 - b^2) + 4 n11 a b; hu_7 = d a (a^2 - 3 b^2) - c b (3 a^2 - b^2). They do not depend on"
          " where the shape lies and, but for the grid of pixels, neither on its size nor on its direction;"
          " in a mirror hu_7 changes its sign. Numbers without unit; a single pixel has 0 seven times. A "
          "mask or region without pixels has none of them.",
      .source =
          "M.-K. Hu, Visual pattern recognition by moment invariants, IRE Trans. Information Theory 8(2), 1962, "
          "179-187, doi:10.1109/TIT.1962.1057692",
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<MomentsHu>(); }}};
  return info;
}

}  // namespace orvexa::model
