#include <memory>
#include <string>
#include <vector>

#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/mask_operations/rectangles.h"
#include "orvexa/model/mask_operations/region_names.h"

namespace orvexa::model {

namespace {

class RoiRects final : public MaskOperation {
  std::optional<Mask> compute(const ImageSource& source, const Mask*, const Value& params) override {
    const Shape shape = source.get_shape();
    auto labels = std::make_shared<RegionLabels>();
    std::vector<cv::Rect> rects;
    std::vector<std::string> outside;
    for (const Value& value : params.at("rects")) {
      const PixelRect rect = pixels_of(pick_rect_from(value), shape.height, shape.width);
      labels->names.push_back("ROI_" + std::to_string(labels->names.size() + 1));
      if (rect.is_empty()) outside.push_back(labels->names.back());
      rects.push_back(cv_rect(rect));
    }
    if (labels->names.empty()) {
      note = "no_rectangle: the list of rectangles is empty, so the mask is empty";
    } else if (!outside.empty()) {
      note = "outside_image: no pixel of the image is covered by " + names_text(outside);
    }
    cv::Mat pixels(shape.height, shape.width, CV_8UC1);
    labels->image.create(shape.height, shape.width, CV_32SC1);
    for_each_stripe(shape.height, shape.width, context(), [&](int y0, int y1) {
      const cv::Rect rows(0, y0, shape.width, y1 - y0);
      pixels(rows).setTo(0);
      labels->image(rows).setTo(0);
      for (std::size_t k = 0; k < rects.size(); ++k) {
        context().check();
        pixels(rects[k] & rows).setTo(255);
        labels->image(rects[k] & rows).setTo(static_cast<int>(k) + 1);
      }
    });
    return Mask(std::move(pixels)).with_labels(std::move(labels));
  }
};

}  // namespace

const MaskOperationInfo& roi_rects_info() {
  static const MaskOperationInfo info{
      .key = "roi_rects",
      .display_name = "Regions of interest: rectangles",
      .category = "Regions of interest",
      .summary = "Keeps the pixels inside several rectangles and makes each of them a region.",
      .description =
          "Each rectangle is placed like the one of roi_rect and is measured on its own as ROI_1, ROI_2, ... in "
          "drawing order. Where rectangles overlap, a pixel belongs to the later one. A rectangle wholly outside the "
          "image keeps its name and has no pixel, with a note. Steps that grow a mask stay inside the rectangles.",
      .source = "Definition of this program",
      .parameters = {{.name = "rects",
                      .type = ParameterType::rects,
                      .default_value = Value::array({whole_image_rect()}),
                      .unit = "fraction of the image",
                      .help = "Centres and sizes of the rectangles: a list of cx, cy, w, h.",
                      .interaction = Interaction{"rects"}}},
      ._is_roi_operation = true,
      .makes_regions = [](const Value&) { return true; },
      .make = [] { return std::make_unique<RoiRects>(); }};
  return info;
}

}  // namespace orvexa::model
