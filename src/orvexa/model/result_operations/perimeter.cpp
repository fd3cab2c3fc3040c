#include "orvexa/model/measures/shape_measures.h"
#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/region_shapes.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

class Perimeter final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult Perimeter::compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) {
  const bool wants_chain = params.at("chain").get<bool>();
  const std::optional<double> scale = capture.millimetres_per_pixel();
  struct Lengths {
    double crofton = 0;
    double chain = 0;
  };
  const std::vector<Lengths> lengths = measure_pictures(regions, context(), [&](const cv::Mat& picture) {
    return Lengths{crofton_perimeter(picture, context()), wants_chain ? chain_perimeter(picture, context()) : 0};
  });

  OperationResult result;
  add_length_units(result, "perimeter", scale);
  if (wants_chain) add_length_units(result, "perimeter_chain", scale);
  write_filled_rows(result, regions, [&](const Region&, int index, ResultRow& row) {
    const Lengths& own = measured_of(lengths, index);
    set_length(row, "perimeter", own.crofton, scale);
    if (wants_chain) set_length(row, "perimeter_chain", own.chain, scale);
  });
  return result;
}

}  // namespace

const ResultOperationInfo& perimeter_info() {
  static const ResultOperationInfo info{
      .key = "perimeter",
      .display_name = "Perimeter",
      .category = "Shape",
      .summary = "Measures the length of the outline of the mask and of each region.",
      .description =
          "perimeter = pi / 4 * (I0 + I90 + (I45 + I135) / sqrt(2)), where I is how often parallel lines of that "
          "direction, one through every pixel, enter the mask (Crofton's formula with 4 directions). Rims of holes "
          "count, the border of the image is outside. perimeter_chain (only when asked for) is the length of the chain "
          "of border pixels with weights 1, sqrt(2) and (1 + sqrt(2)) / 2; a single pixel has 0. perimeter_mm and "
          "perimeter_chain_mm appear where the capture declares its scale. The whole mask is measured as one set: "
          "where two regions touch, their common rim counts for each of them and not for the whole.",
      .source =
          "D. Legland, K. Kiêu, M.-F. Devaux, Computation of Minkowski measures on 2D and 3D binary images, Image "
          "Anal. Stereol. 26(2), 2007, 83-92, doi:10.5566/ias.v26.p83-92; chain: K. Benkrid, D. Crookes, Design "
          "and FPGA Implementation of a Perimeter Estimator, Queen's University of Belfast, 2000",
      .parameters = {{.name = "chain",
                      .type = ParameterType::boolean,
                      .default_value = false,
                      .help = "Whether the length of the chain of border pixels is given as well."}},
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<Perimeter>(); }}};
  return info;
}

}  // namespace orvexa::model
