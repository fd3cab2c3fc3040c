#include <string>
#include <vector>

#include "orvexa/model/mask_operations/drawn_shapes.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/measures/components.h"
#include "orvexa/model/measures/scan_conversion.h"
#include "orvexa/model/pictures/outlines.h"

namespace orvexa::model {

namespace {

using Polygons = std::vector<std::vector<cv::Point2d>>;

Polygons polygons_of(const Value& list, Shape shape) {
  Polygons polygons;
  for (const Value& points : list) polygons.push_back(polygon_corners(points, shape));
  return polygons;
}

class MaskEdit final : public MaskOperation {
  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const Shape shape = source.get_shape();
    const Polygons added = polygons_of(params.at("add"), shape);
    const Polygons removed = polygons_of(params.at("remove"), shape);
    const cv::Mat before = (current != nullptr ? *current : Mask::full(shape)).read_only();
    cv::Mat pixels(shape.height, shape.width, CV_8UC1);
    for_each_stripe(shape.height, shape.width, context(), [&](int y0, int y1) {
      before.rowRange(y0, y1).copyTo(pixels.rowRange(y0, y1));
      paint(added, 255, y0, y1, pixels);
      paint(removed, 0, y0, y1, pixels);
    });
    if (wants_overlay) draw(before, pixels);
    return Mask(std::move(pixels));
  }

  void paint(const Polygons& polygons, std::uint8_t value, int y0, int y1, cv::Mat& pixels) const {
    for (const std::vector<cv::Point2d>& polygon : polygons) {
      context().check();
      fill_polygon(polygon, y0, y1, value, pixels);
    }
  }

  void draw(const cv::Mat& before, const cv::Mat& after) {
    LineDrawing drawing({before.rows, before.cols});
    const auto outline = [&](const cv::Mat& more, const cv::Mat& less, Pen pen) {
      cv::Mat changed;
      cv::compare(more, less, changed, cv::CMP_GT);
      const Components parts = label_components(changed, 8, context());
      drawing.outline(parts, std::vector<Pen>(parts.components.size(), pen), context());
    };
    outline(after, before, Pen::changed);
    outline(before, after, Pen::rejected);
    viz_overlay = drawing.finished(context());
  }
};

}  // namespace

const MaskOperationInfo& mask_edit_info() {
  static const MaskOperationInfo info{
      .key = "mask_edit",
      .display_name = "Edit by hand",
      .category = "Shape of the mask",
      .summary = "Adds the pixels inside hand-drawn polygons to the mask and removes those inside others.",
      .description =
          "First the pixels inside every polygon of add are set, then those inside every polygon of remove are left "
          "out, so where both cover a pixel it is removed. The corners are in fractions of the image's width and "
          "height, and inside is what the even-odd rule says for one polygon alone. " +
          std::string(pixel_centre_rule()) +
          " Without a mask before it every pixel counts, so that there is nothing to add. What is added stays inside "
          "the regions of interest chosen so far, or inside the image where there are none; it belongs to the region "
          "that was drawn there, if any. The picture of the step shows the rims of what was added blue and of what "
          "was removed red.",
      .source = std::string(scan_conversion_source()),
      .parameters = {{.name = "add",
                      .type = ParameterType::polygons,
                      .default_value = Value::array(),
                      .unit = "fraction of the image",
                      .help = "What is added: a list of polygons, each of at least three x, y.",
                      .interaction = Interaction{"points"}},
                     {.name = "remove",
                      .type = ParameterType::polygons,
                      .default_value = Value::array(),
                      .unit = "fraction of the image",
                      .help = "What is removed afterwards: a list of polygons, each of at least three x, y.",
                      .interaction = Interaction{"points"}}},
      ._preview_unconstrained = true,
      .make = [] { return std::make_unique<MaskEdit>(); }};
  return info;
}

}  // namespace orvexa::model
