#include "orvexa/model/result_operations/operations.h"
#include "orvexa/model/result_operations/result_rows.h"

namespace orvexa::model {

namespace {

class BoundingBox final : public ResultOperation {
  OperationResult compute(const CaptureSet& capture, const RegionSet& regions, const Value& params) override;
};

OperationResult BoundingBox::compute(const CaptureSet& capture, const RegionSet& regions, const Value&) {
  const std::optional<double> scale = capture.millimetres_per_pixel();
  const double width = regions.shape().width;
  const double height = regions.shape().height;
  OperationResult result;
  for (const char* name : {"bbox_x", "bbox_y", "bbox_width", "bbox_height"}) add_length_units(result, name, scale);
  for (const char* name : {"bbox_x_norm", "bbox_width_norm"}) result.units[name] = "fraction of the image's width";
  for (const char* name : {"bbox_y_norm", "bbox_height_norm"}) result.units[name] = "fraction of the image's height";
  result.units["extent"] = "";
  write_filled_rows(result, regions, [&](const Region& region, int, ResultRow& row) {
    const PixelRect& box = region.box;
    const int box_width = box.x1 - box.x0;
    const int box_height = box.y1 - box.y0;
    const auto set_pixels = [&](const std::string& name, int pixels) {
      row.set(name, Value(pixels));
      if (scale) row.set(name + "_mm", pixels * *scale);
    };
    set_pixels("bbox_x", box.x0);
    set_pixels("bbox_y", box.y0);
    set_pixels("bbox_width", box_width);
    set_pixels("bbox_height", box_height);
    row.set("bbox_x_norm", box.x0 / width);
    row.set("bbox_y_norm", box.y0 / height);
    row.set("bbox_width_norm", box_width / width);
    row.set("bbox_height_norm", box_height / height);
    row.set("extent", static_cast<double>(region.area) / (static_cast<double>(box_width) * box_height));
  });
  return result;
}

}  // namespace

const ResultOperationInfo& bounding_box_info() {
  static const ResultOperationInfo info{
      .key = "bounding_box",
      .display_name = "Bounding box",
      .category = "Shape",
      .summary = "Gives the upright box around the mask and around each region and how much of it is filled.",
      .description =
          "The box holds the columns bbox_x to bbox_x + bbox_width - 1 and the rows bbox_y to bbox_y + bbox_height - "
          "1, where the first column and the first row of the image are 0. bbox_x_norm = bbox_x / width of the image "
          "and bbox_width_norm = bbox_width / width of the image, bbox_y_norm and bbox_height_norm likewise with its "
          "height, so that a box of the whole image is 0, 0, 1, 1. extent = area / (bbox_width * bbox_height), at most "
          "1. The first four appear in millimetres as <name>_mm where the capture declares its scale. A mask or region "
          "without pixels has none of them.",
      .source = "ISO 13322-1, Particle size analysis - Image analysis methods - Part 1: Static image analysis methods",
      .operation_class = {._requires_mask_operation = std::vector<std::string>{"*"},
                          .make = [] { return std::make_unique<BoundingBox>(); }}};
  return info;
}

}  // namespace orvexa::model
