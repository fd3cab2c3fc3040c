#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

class Area final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult Area::compute(const CaptureSet& capture, const RegionSet& regions, const Value&) {
  const auto image_pixels = static_cast<double>(regions.shape().pixels());
  const std::optional<Mask> bounds = regions.mask().bounds();
  const double roi_pixels = bounds ? static_cast<double>(bounds->count()) : image_pixels;
  const std::optional<double> scale = capture.millimetres_per_pixel();

  OperationResult result;
  add_area_units(result, "area", scale);
  result.units["area_fraction"] = "fraction of the image";
  result.units["area_fraction_of_roi"] = "fraction of the region of interest";
  write_rows(result, regions, [&](const Region& region, int, ResultRow& row) {
    const auto area = static_cast<double>(region.area);
    row.set("area", Value(region.area));
    const auto set = [&](const char* name, double value) {
      if (row.is_empty()) {
        row.leave_out(name, row.empty_reason());
      } else {
        row.set(name, value);
      }
    };
    if (scale) set("area_mm2", area * *scale * *scale);
    set("area_fraction", area / image_pixels);
    set("area_fraction_of_roi", area / roi_pixels);
  });
  return result;
}

}  // namespace

const ResultOperationInfo& area_info() {
  static const ResultOperationInfo info{
      .key = "area",
      .display_name = "Area",
      .category = "Shape",
      .summary = "Counts the pixels of the mask and of each region.",
      .description =
          "area = number of set pixels. area_mm2 = area * (millimetres per pixel)^2, only where the capture declares "
          "its scale. area_fraction = area / pixels of the image. area_fraction_of_roi = area / pixels of the region "
          "of interest, which is what the region-of-interest steps left (the whole image when there is none). A mask "
          "or region without pixels has area 0 and no other value.",
      .source = "ISO 13322-1, Particle size analysis - Image analysis methods - Part 1: Static image analysis methods",
      .operation_class = {.make = [] { return std::make_unique<Area>(); }}};
  return info;
}

}  // namespace orvexa::model
