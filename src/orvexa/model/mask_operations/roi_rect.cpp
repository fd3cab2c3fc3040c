#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/rectangles.h"

namespace orvexa::model {

namespace {

class RoiRect final : public MaskOperation {
  std::optional<Mask> compute(const ImageSource& source, const Mask*, const Value& params) override {
    const Shape shape = source.get_shape();
    const PixelRect rect = pixels_of(pick_rect_from(params.at("rect")), shape.height, shape.width);
    cv::Mat pixels(shape.height, shape.width, CV_8UC1, cv::Scalar(0));
    pixels(cv_rect(rect)).setTo(255);
    if (rect.is_empty()) note = "outside_image: the rectangle covers no pixel of the image, so the mask is empty";
    context().check();
    return Mask(std::move(pixels));
  }
};

}  // namespace

const MaskOperationInfo& roi_rect_info() {
  static const MaskOperationInfo info{
      .key = "roi_rect",
      .display_name = "Region of interest: rectangle",
      .category = "Regions of interest",
      .summary = "Keeps the pixels inside one rectangle.",
      .description =
          "The rectangle has its centre at (cx, cy) and the size (w, h), in fractions of the image's width and height. "
          "With x = cx - w/2 it covers the columns floor(x W + e) to ceil((x + w) W - e) - 1, where W is the width in "
          "pixels and e = 1e-6 pixels keeps a rectangle drawn on whole pixels from growing by one through rounding; "
          "rows likewise. What lies outside the image is cut off; a rectangle wholly outside gives an empty mask with "
          "a note. Steps that grow a mask stay inside it.",
      .source = "Definition of this program",
      .parameters = {{.name = "rect",
                      .type = ParameterType::rect,
                      .default_value = whole_image_rect(),
                      .unit = "fraction of the image",
                      .help = "Centre and size of the rectangle: cx, cy, w, h.",
                      .interaction = Interaction{"rect"}}},
      ._is_roi_operation = true,
      .make = [] { return std::make_unique<RoiRect>(); }};
  return info;
}

}  // namespace orvexa::model
