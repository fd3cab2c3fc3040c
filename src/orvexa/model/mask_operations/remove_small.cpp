#include "orvexa/model/mask_operations/component_filter.h"
#include "orvexa/model/mask_operations/operations.h"
#include "orvexa/model/pictures/outlines.h"
#include "orvexa/model/scale_units.h"

namespace orvexa::model {

namespace {

class RemoveSmall final : public MaskOperation {
  std::optional<Mask> compute(const ImageSource& source, const Mask* current, const Value& params) override {
    const auto& unit = params.at("unit").get_ref<const std::string&>();
    const double area_of_pixel = pixel_area_in(get_display_name(), unit, source);
    const double min_area = params.at("min_area").get<double>();
    const int connectivity = params.at("connectivity").get_ref<const std::string&>() == "4" ? 4 : 8;
    const Components components = label_components(*current, connectivity, context());
    std::vector<char> is_kept;
    is_kept.reserve(components.components.size());
    for (const Components::Component& component : components.components) {
      is_kept.push_back(reaches(double(component.area) * area_of_pixel, min_area) ? 1 : 0);
    }
    if (wants_overlay) viz_overlay = kept_and_rejected(components, is_kept, context());
    return Mask(only_kept(components, is_kept, context()));
  }
};

}  // namespace

const MaskOperationInfo& remove_small_info() {
  static const MaskOperationInfo info{
      .key = "remove_small",
      .display_name = "Remove small parts",
      .category = "Shape of the mask",
      .summary = "Removes the connected parts of the mask that are smaller than an area.",
      .description =
          "The mask is split into connected components, 8-connected (corners join) or 4-connected (only sides join). A "
          "component is kept when its area is at least min_area, in pixels or in square millimetres by the capture's "
          "scale. The picture of the step shows the rims of what is kept green and of what is removed red.",
      .source =
          "A. Rosenfeld, J. L. Pfaltz, Sequential Operations in Digital Picture Processing, J. ACM 13(4), 1966, "
          "471-494",
      .parameters = {{.name = "min_area",
                      .type = ParameterType::real,
                      .default_value = 64.0,
                      .min = 0.0,
                      .unit = "px or mm2",
                      .help = "The smallest area that is kept, in the unit chosen below."},
                     area_unit_parameter(),
                     {.name = "connectivity",
                      .type = ParameterType::choice,
                      .default_value = "8",
                      .help = "Whether pixels that touch only at a corner are connected (8) or not (4).",
                      .choices = {"4", "8"}}},
      .needs_mask = true,
      .check_capture = check_scale_for("Remove small parts"),
      .make = [] { return std::make_unique<RemoveSmall>(); }};
  return info;
}

}  // namespace orvexa::model
