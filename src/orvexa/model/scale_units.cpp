#include "orvexa/model/scale_units.h"

#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>

namespace orvexa::model {

namespace {

double millimetres_per_pixel(std::string_view operation, const ImageSource& source) {
  const auto scale = source.millimetres_per_pixel();
  if (!scale) {
    throw std::runtime_error(std::string(operation) +
                             ": sizes in millimetres need a scale, and this capture's header declares no "
                             "MillimetresPerPixel.");
  }
  return *scale;
}

}  // namespace

ParameterInfo length_unit_parameter() {
  return {.name = "unit",
          .type = ParameterType::choice,
          .default_value = "px",
          .help = "Unit of the lengths: pixels, or millimetres by the capture's scale.",
          .choices = {"px", "mm"}};
}

ParameterInfo area_unit_parameter() {
  return {.name = "unit",
          .type = ParameterType::choice,
          .default_value = "px",
          .help = "Unit of the areas: pixels, or square millimetres by the capture's scale.",
          .choices = {"px", "mm2"}};
}

double pixel_length(std::string_view operation, std::string_view unit, const ImageSource& source) {
  return unit == "mm" ? millimetres_per_pixel(operation, source) : 1.0;
}

double longest_in_pixels(std::string_view operation, double length, std::string_view unit, const ImageSource& source) {
  return length / pixel_length(operation, unit, source) * (1 + 1e-9);
}

double pixel_area_in(std::string_view operation, std::string_view unit, const ImageSource& source) {
  if (unit != "mm2") return 1.0;
  const double side = millimetres_per_pixel(operation, source);
  return side * side;
}

std::function<void(const ImageSource& source, const Value& params)> check_scale_for(std::string operation) {
  return [name = std::move(operation)](const ImageSource& source, const Value& params) {
    if (params.at("unit") != "px") static_cast<void>(millimetres_per_pixel(name, source));
  };
}

bool reaches(double size, double limit) {
  return size >= limit - 1e-9 * std::abs(limit);
}

}  // namespace orvexa::model
