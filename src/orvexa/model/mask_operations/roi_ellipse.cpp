#include <string>

#include "orvexa/model/mask_operations/drawn_shapes.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/rectangles.h"

namespace orvexa::model {

namespace {

class RoiEllipse final : public MaskOperation {
  std::optional<Mask> compute(const ImageSource& source, const Mask*, const Value& params) override {
    Mask mask(drawn_ellipse(pick_rect_from(params.at("rect")), source.get_shape(), context()));
    if (mask.count() == 0) note = "outside_image: the ellipse covers no pixel of the image, so the mask is empty";
    return mask;
  }
};

}  // namespace

const MaskOperationInfo& roi_ellipse_info() {
  static const MaskOperationInfo info{
      .key = "roi_ellipse",
      .display_name = "Region of interest: ellipse",
      .category = "Regions of interest",
      .summary = "Keeps the pixels inside one ellipse or circle.",
      .description =
          "The ellipse touches the sides of a box with its centre at (cx, cy) and the size (w, h), in fractions of the "
          "image's width W and height H: ((x - cx W) / (w W / 2))^2 + ((y - cy H) / (h H / 2))^2 <= 1. A box that is "
          "square in pixels gives a circle. " +
          std::string(pixel_centre_rule()) +
          " A millionth of a pixel is allowed for rounding. What lies outside the image is cut off; an ellipse without "
          "a pixel of the image gives an empty mask with the note outside_image. Steps that grow a mask stay inside "
          "it.",
      .source = std::string(scan_conversion_source()),
      .parameters = {{.name = "rect",
                      .type = ParameterType::rect,
                      .default_value = whole_image_rect(),
                      .unit = "fraction of the image",
                      .help = "Centre and size of the box around the ellipse: cx, cy, w, h.",
                      .interaction = Interaction{"rect"}}},
      ._is_roi_operation = true,
      .make = [] { return std::make_unique<RoiEllipse>(); }};
  return info;
}

}  // namespace orvexa::model
