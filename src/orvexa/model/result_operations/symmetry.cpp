#include "orvexa/model/measures/shape_measures.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/region_shapes.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

class Symmetry final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult Symmetry::compute(const CaptureSet&, const RegionSet& regions, const Value&) {
  const std::vector<MirrorAgreement> agreements = measure_pictures(
      regions, context(), [&](const cv::Mat& picture) { return mirror_agreement(picture, context()); });

  OperationResult result;
  for (const char* name : {"symmetry_left_right", "symmetry_top_bottom"}) result.units[name] = "";
  write_filled_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
    const MirrorAgreement& own = measured_of(agreements, index);
    row.set("symmetry_left_right", own.left_right);
    row.set("symmetry_top_bottom", own.top_bottom);
  });
  return result;
}

}  // namespace

const ResultOperationInfo& symmetry_info() {
  static const ResultOperationInfo info{
      .key = "symmetry",
      .display_name = "Symmetry",
      .category = "Shape",
      .summary = "Compares the mask and each region with their mirror pictures.",
      .description =
          "symmetry_left_right = pixels of the shape that are also in its mirror picture / pixels in either"
          " of them (intersection over union), mirrored at the vertical line through the centroid; 1 = "
          "symmetric. symmetry_top_bottom is the same for the horizontal line. The line lies at the "
          "multiple of half a pixel that is nearest to the centroid (of two equally near ones the one to "
          "the right or below), so that pixels fall on pixels. Numbers without unit. A mask or region "
          "without pixels has none of them.",
      .source =
          "P. Jaccard, The distribution of the flora in the alpine zone, New Phytologist 11(2), 1912, 37-50, "
          "doi:10.1111/j.1469-8137.1912.tb05611.x (intersection over union)",
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<Symmetry>(); }}};
  return info;
}

}  // namespace orvexa::model
