#include <string>

#include "orvexa/model/mask_operations/dependent_parameters.h"
#include "orvexa/model/mask_operations/drawn_shapes.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/rectangles.h"

namespace orvexa::model {

namespace {

class RoiExclude final : public MaskOperation {
  void check(const Value& params) const override {
    const Value& points = params.at("points");
    if (params.at("shape") == "polygon" && !points.empty()) check_polygon("roi_exclude", "points", points);
    refuse_unless_chosen(info(), params, {"rect"}, "shape", {"rect", "ellipse"});
    refuse_unless_chosen(info(), params, {"points"}, "shape", {"polygon"});
  }

  std::optional<Mask> compute(const ImageSource& source, const Mask*, const Value& params) override {
    cv::Mat pixels = excluded(source.get_shape(), params);
    for_each_stripe(pixels.rows, pixels.cols, context(), [&](int y0, int y1) {
      cv::Mat rows = pixels.rowRange(y0, y1);
      cv::bitwise_not(rows, rows);
    });
    Mask mask(std::move(pixels));
    if (mask.count() == mask.shape().pixels()) {
      note = "The shape covers no pixel of the image, so nothing is excluded.";
    } else if (mask.count() == 0) {
      note = "excluded: the shape covers the whole image, so the mask is empty";
    }
    return mask;
  }

  [[nodiscard]] cv::Mat excluded(Shape shape, const Value& params) const {
    const auto& kind = params.at("shape").get_ref<const std::string&>();
    if (kind == "polygon") return drawn_polygon(params.at("points"), shape, context());
    const PickRect rect = pick_rect_from(params.at("rect"));
    return kind == "ellipse" ? drawn_ellipse(rect, shape, context()) : drawn_rect(rect, shape, context());
  }
};

}  // namespace

const MaskOperationInfo& roi_exclude_info() {
  static const MaskOperationInfo info{
      .key = "roi_exclude",
      .display_name = "Region of interest: all but a shape",
      .category = "Regions of interest",
      .summary = "Leaves out the pixels inside a rectangle, an ellipse or a polygon, such as a label or a scale bar.",
      .description =
          "The complement of what roi_rect, roi_ellipse or roi_polygon keeps for the same shape: every pixel is in "
          "exactly one of both. A rectangle without size and a list without points, which are the defaults, exclude "
          "nothing. Steps that grow a mask stay out of the shape. Several shapes are excluded by several steps.",
      .source = std::string(scan_conversion_source()),
      .parameters = {{.name = "shape",
                      .type = ParameterType::choice,
                      .default_value = "rect",
                      .help = "What is excluded.",
                      .choices = {"rect", "ellipse", "polygon"}},
                     {.name = "rect",
                      .type = ParameterType::rect,
                      .default_value = Value::array({0.5, 0.5, 0.0, 0.0}),
                      .unit = "fraction of the image",
                      .help = "Centre and size of the rectangle, or of the box around the ellipse: cx, cy, w, h.",
                      .interaction = Interaction{"rect"}},
                     {.name = "points",
                      .type = ParameterType::points,
                      .default_value = Value::array(),
                      .unit = "fraction of the image",
                      .help = "The corners of the polygon: a list of at least three x, y.",
                      .interaction = Interaction{"points"}}},
      ._is_roi_operation = true,
      .make = [] { return std::make_unique<RoiExclude>(); }};
  return info;
}

}  // namespace orvexa::model
