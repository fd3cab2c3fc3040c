#include "orvexa/model/mask_operations/component_filter.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/pictures/outlines.h"
#include "orvexa/model/scale_units.h"

namespace orvexa::model {

namespace {

class FillHoles final : public MaskOperation {
  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const auto& unit = params.at("unit").get_ref<const std::string&>();
    const double area_of_pixel = pixel_area_in(get_display_name(), unit, source);
    const double max_area = params.at("max_area").get<double>();
    const Components components = label_background(current->read_only(), 4, context());
    std::vector<char> is_hole;
    is_hole.reserve(components.components.size());
    for (const Components::Component& component : components.components) {
      const bool is_small = max_area == 0 || reaches(max_area, double(component.area) * area_of_pixel);
      is_hole.push_back(!components.touches_border(component) && is_small ? 1 : 0);
    }
    if (wants_overlay) draw(components, is_hole);
    cv::Mat filled = current->read_only().clone();
    paint_components(components, is_hole, 255, context(), filled);
    return Mask(std::move(filled));
  }

  void draw(const Components& background, const std::vector<char>& is_filled) {
    std::vector<Pen> pens;
    for (std::size_t k = 0; k < is_filled.size(); ++k) {
      const bool is_hole = !background.touches_border(background.components[k]);
      pens.push_back(is_filled[k] != 0 ? Pen::changed : is_hole ? Pen::rejected : Pen::none);
    }
    LineDrawing drawing(background.shape);
    drawing.outline(background, pens, context());
    viz_overlay = drawing.finished(context());
  }
};

}  // namespace

const MaskOperationInfo& fill_holes_info() {
  static const MaskOperationInfo info{
      .key = "fill_holes",
      .display_name = "Fill holes",
      .category = "Shape of the mask",
      .summary = "Fills the holes of the mask up to a size.",
      .description =
          std::string(
              "A hole is a 4-connected component of pixels outside the mask that does not touch the border of the "
              "image. Holes of at most max_area are filled, with 0 holes of any size. Areas are in pixels, or in "
              "square millimetres by the capture's scale. The result stays inside the regions of interest chosen so "
              "far, or inside the image where there are none. The picture of the step shows the rims of the holes that "
              "are filled blue and of those that are too large red.") +
          added_pixels_text(),
      .source = "P. Soille, Morphological Image Analysis, 2nd edition, Springer 2003",
      .parameters = {{.name = "max_area",
                      .type = ParameterType::real,
                      .default_value = 0.0,
                      .min = 0.0,
                      .unit = "px or mm2",
                      .help = "The largest hole that is filled, in the unit chosen below; 0 fills holes of any size."},
                     area_unit_parameter()},
      ._preview_unconstrained = true,
      .needs_mask = true,
      .check_capture = check_scale_for("Fill holes"),
      .make = [] { return std::make_unique<FillHoles>(); }};
  return info;
}

}  // namespace orvexa::model
