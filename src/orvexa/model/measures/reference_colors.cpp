#include "orvexa/model/measures/reference_colors.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "orvexa/common/text.h"

namespace orvexa::model {

namespace {

constexpr std::size_t most_colors = 64;

bool is_control_character(char c) {
  const auto code = static_cast<unsigned char>(c);
  return code < 0x20 || code == 0x7f;
}

}  // namespace

std::vector<NamedColor> palette_from(const Value& palette) {
  std::vector<NamedColor> colors;
  for (const Value& entry : palette) {
    const Value& lab = entry.at("lab");
    colors.push_back({entry.at("name").get<std::string>(),
                      {lab.at(0).get<double>(), lab.at(1).get<double>(), lab.at(2).get<double>()}});
  }
  return colors;
}

void check_palette(std::string_view operation, std::string_view parameter, const Value& palette) {
  if (palette.empty() || palette.size() > most_colors) {
    throw std::invalid_argument(fmt::format("{}: parameter \"{}\" has {} colours, but it must have from 1 to {}.",
                                            operation, parameter, palette.size(), most_colors));
  }
  for (const NamedColor& color : palette_from(palette)) {
    if (std::ranges::any_of(color.name, is_control_character)) {
      throw std::invalid_argument(
          fmt::format("{}: in parameter \"{}\" the colour \"{}\" has a line break, a tab or another control character "
                      "in its name.",
                      operation, parameter, common::visible_text(color.name)));
    }
    if (!(color.lab.l >= 0 && color.lab.l <= 100)) {
      throw std::invalid_argument(
          fmt::format("{}: in parameter \"{}\" the colour \"{}\" has the lightness {}, but it must be from 0 to 100.",
                      operation, parameter, color.name, common::number_text(color.lab.l)));
    }
  }
}

ParameterInfo patch_radius_parameter() {
  return {.name = "radius",
          .type = ParameterType::integer,
          .default_value = 0,
          .min = 0.0,
          .max = 1000.0,
          .unit = "px",
          .help = "A picked colour is the mean in CIELAB of the pixels not farther than this from the picked one."};
}

Lab picked_color(const ColorSource& colors, const Value& point, int radius) {
  const PickPoint picked{point.at(0).get<double>(), point.at(1).get<double>()};
  const PixelPoint pixel = pixel_of(picked, colors.shape().height, colors.shape().width);
  if (const auto lab = mean_lab_around(colors, pixel, radius)) return *lab;
  throw std::runtime_error(fmt::format("No pixel at the point ({}, {}) has a valid colour.",
                                       common::number_text(picked.x_norm), common::number_text(picked.y_norm)));
}

std::string lab_text(const Lab& lab) {
  const auto rounded = [](double number) { return std::round(100 * number) / 100 + 0.0; };  // + 0.0: never "-0"
  return fmt::format("L {:g}, a {:g}, b {:g}", rounded(lab.l), rounded(lab.a), rounded(lab.b));
}

}  // namespace orvexa::model
