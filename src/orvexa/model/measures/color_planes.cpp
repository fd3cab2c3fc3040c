#include "orvexa/model/measures/color_planes.h"

#include <fmt/format.h>

#include <optional>
#include <stdexcept>
#include <utility>

#include "orvexa/model/measures/color.h"

namespace orvexa::model {

namespace {

ColorPlanes planes_of_image(const Band& band) {
  return {color_channels(band), band.name.substr(0, band.name.rfind('.'))};
}

std::optional<Band> first_color_band(const ImageSource& source) {
  std::optional<Band> first;
  for (Band& band : all_bands(source)) {
    if (!band.image.is_color()) continue;
    if (band.measurement == "CLR") return std::move(band);
    if (!first) first = std::move(band);
  }
  return first;
}

}  // namespace

ParameterInfo color_image_parameter() {
  return {.name = "image",
          .type = ParameterType::band,
          .default_value = "",
          .help =
              "The colour image to look at; empty means the first one of CLR, else the first one of the capture, or "
              "where there is none the bands of the roles R, G and B of one measurement."};
}

ColorPlanes find_color_planes(const ImageSource& source, std::string_view operation, std::string_view image) {
  if (!image.empty()) {
    const Band band = find_band(source, image);
    if (band.image.is_color()) return planes_of_image(band);
    throw std::runtime_error(
        fmt::format("{}: {} is a single-band image; colour needs an image with three channels.", operation, band.name));
  }
  if (const auto band = first_color_band(source)) return planes_of_image(*band);
  ColorPlanes planes;
  planes.rgb = find_roles(source, {"R", "G", "B"});
  planes.name = planes.rgb.front().measurement + ".RGB";
  return planes;
}

std::function<void(const ImageSource&, const Value&)> check_color_capture(std::string operation) {
  return [operation = std::move(operation)](const ImageSource& source, const Value& params) {
    static_cast<void>(find_color_planes(source, operation, params.at("image").get<std::string>()));
  };
}

}  // namespace orvexa::model
