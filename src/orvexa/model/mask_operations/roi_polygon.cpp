#include <string>

#include "orvexa/model/mask_operations/drawn_shapes.h"
#include "orvexa/model/mask_operations/operations.h"

namespace orvexa::model {

namespace {

class RoiPolygon final : public MaskOperation {
  void check(const Value& params) const override { check_polygon("roi_polygon", "points", params.at("points")); }

  std::optional<Mask> compute(const ImageSource& source, const Mask*, const Value& params) override {
    Mask mask(drawn_polygon(params.at("points"), source.get_shape(), context()));
    if (mask.count() == 0) note = "outside_image: the polygon covers no pixel of the image, so the mask is empty";
    return mask;
  }
};

}  // namespace

const MaskOperationInfo& roi_polygon_info() {
  static const MaskOperationInfo info{
      .key = "roi_polygon",
      .display_name = "Region of interest: polygon",
      .category = "Regions of interest",
      .summary = "Keeps the pixels inside one polygon.",
      .description =
          "The points are the corners in their order, in fractions of the image's width and height; the last one is "
          "joined to the first. Inside is what the even-odd rule says: a ray from there crosses the sides an odd "
          "number of times, so that where a polygon overlaps itself there is a hole. " +
          std::string(pixel_centre_rule()) +
          " A centre exactly on a side belongs to the polygon on the right of the side or below it, so that polygons "
          "with a common side share no pixel. What lies outside the image is cut off; a polygon without a pixel of the "
          "image gives an empty mask with the note outside_image. Steps that grow a mask stay inside it.",
      .source = std::string(scan_conversion_source()),
      .parameters = {{.name = "points",
                      .type = ParameterType::points,
                      .default_value = Value::parse("[[0.0, 0.0], [1.0, 0.0], [1.0, 1.0], [0.0, 1.0]]"),
                      .unit = "fraction of the image",
                      .help = "The corners: a list of at least three x, y.",
                      .interaction = Interaction{"points"}}},
      ._is_roi_operation = true,
      .make = [] { return std::make_unique<RoiPolygon>(); }};
  return info;
}

}  // namespace orvexa::model
